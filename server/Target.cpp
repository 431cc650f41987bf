#include "server/Target.h"

#include <algorithm>
#include <charconv>

namespace reportd {
namespace {

// None when the text is not two hexadecimal digits, or is a control character's code.
std::optional<char> DecodeEscape(std::string_view digits)
{
    unsigned code = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, code, 16);
    if (digits.size() != 2 || error != std::errc() || stop != end || code < 0x20 || code == 0x7F) {
        return {};
    }
    return static_cast<char>(static_cast<unsigned char>(code));
}

std::optional<std::string> Decode(std::string_view text)
{
    std::string decoded;
    while (!text.empty()) {
        std::size_t length = 1;
        char letter = text.front();
        if (letter == '%') {
            const std::optional<char> escaped = DecodeEscape(text.substr(1, 2));
            if (!escaped) {
                return {};
            }
            letter = *escaped;
            length = 3;
        }
        decoded += letter;
        text.remove_prefix(length);
    }
    return decoded;
}

} // namespace

std::string_view WithoutServer(std::string_view target)
{
    constexpr std::string_view kScheme = "http://";
    if (target.starts_with('/')) {
        return target;
    }
    const auto isSame = [](char wanted, char letter) {
        return (letter >= 'A' && letter <= 'Z' ? letter - 'A' + 'a' : letter) == wanted;
    };
    const std::size_t end = target.find_first_of("/?", kScheme.size());
    if (end == std::string_view::npos || end == kScheme.size() ||
        !std::equal(kScheme.begin(), kScheme.end(), target.begin(), isSame)) {
        return target;
    }
    return target.substr(end);
}

std::string_view TakeUpTo(std::string_view& text, char separator)
{
    const std::size_t length = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return taken;
}

std::optional<Parameters> ParseQuery(std::string_view query)
{
    Parameters parameters;
    while (!query.empty()) {
        std::string_view value = TakeUpTo(query, '&');
        const std::optional<std::string> name = Decode(TakeUpTo(value, '='));
        const std::optional<std::string> decoded = Decode(value);
        if (!name || !decoded) {
            return {};
        }
        parameters.emplace_back(*name, *decoded);
    }
    return parameters;
}

} // namespace reportd
