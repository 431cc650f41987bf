#include "server/live/TomlText.h"

#include <algorithm>

namespace reportd {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Behind the quotes that close a text at a place. Of a text of several lines up to two more quotes belong to it.
std::size_t BehindQuotes(std::string_view toml, std::size_t at, std::string_view closing)
{
    at += closing.size();
    for (int more = 0; closing.size() > 1 && more < 2 && at < toml.size() && toml[at] == closing.front(); ++more) {
        ++at;
    }
    return at;
}

// Where a text ends that begins at a quote: behind its last quote. One that is not closed ends with its line, or with
// the file when it may have several lines, as isOneLine tells.
std::size_t EndOfText(std::string_view toml, std::size_t begin, bool* isOneLine)
{
    const char quote = toml[begin];
    const std::string_view three = quote == '"' ? R"(""")" : "'''";
    *isOneLine = toml.substr(begin, 3) != three;
    const std::string_view closing = *isOneLine ? three.substr(0, 1) : three;
    for (std::size_t at = begin + closing.size(); at < toml.size(); ++at) {
        if (toml[at] == '\n' && *isOneLine) {
            return at;
        }
        if (toml.substr(at, closing.size()) == closing) {
            return BehindQuotes(toml, at, closing);
        }
        if (toml[at] == '\\' && quote == '"' && toml.substr(at + 1, 1) != "\n") {
            ++at; // what is escaped does not end it
        }
    }
    return toml.size();
}

// Whether a quote cannot belong to a name or number that begins before it: those end at blanks and commas.
bool MayBeginText(std::string_view toml, std::size_t at)
{
    while (at > 0 && toml[at - 1] == '[') {
        --at;
    }
    return at == 0 || std::string_view(" \t\r\n,").find(toml[at - 1]) != std::string_view::npos;
}

// The position of the first byte beyond ASCII in a part of the file.
std::optional<std::size_t> FindBeyondAscii(std::string_view toml, std::size_t begin, std::size_t end)
{
    const auto isBeyond = [](unsigned char c) { return c >= 0x80; };
    const auto part = toml.substr(begin, end - begin);
    const auto found = std::find_if(part.begin(), part.end(), isBeyond);
    return found == part.end() ? std::nullopt : std::optional(begin + static_cast<std::size_t>(found - part.begin()));
}

} // namespace

std::optional<std::size_t> FindStrayCharacter(std::string_view toml)
{
    std::optional<std::size_t> stray;
    for (std::size_t at = toml.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0; at < toml.size() && !stray;) {
        bool isOneLine = true;
        std::size_t end = at + 1;
        bool mayHoldAny = false;
        if (toml[at] == '#') {
            end = std::min(toml.find('\n', at), toml.size());
            mayHoldAny = true;
        } else if (toml[at] == '"' || toml[at] == '\'') {
            end = EndOfText(toml, at, &isOneLine);
            mayHoldAny = isOneLine && MayBeginText(toml, at);
        }
        if (!mayHoldAny) {
            stray = FindBeyondAscii(toml, at, end);
        }
        at = end;
    }
    if (!stray) {
        return std::nullopt;
    }
    return 1 +
           static_cast<std::size_t>(std::count(toml.begin(), toml.begin() + static_cast<std::ptrdiff_t>(*stray), '\n'));
}

} // namespace reportd
