#include "platform/portable/DocumentCheck.h"

#include "platform/portable/Utf16.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace platform::portable {

namespace {

constexpr std::size_t kMostBytes = 10'000'000;
constexpr std::size_t kTooMany = kMostBytes + 1; // stands for all larger numbers
constexpr unsigned kDeepest = 100;               // entities inside each other; parsers allow 40

std::size_t Sum(std::size_t left, std::size_t right) { return std::min(left + right, kTooMany); }

// The markup that a text begins with, or all of the text when it does not end. A document type declaration ends where
// the declarations inside it begin: these are markup of their own.
std::string_view MarkupAt(std::string_view text)
{
    constexpr std::pair<std::string_view, std::string_view> kOpaque[] = {
        {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}};
    for (const auto& [start, end] : kOpaque) {
        if (text.starts_with(start)) {
            const std::size_t at = text.find(end, start.size());
            return at == std::string_view::npos ? text : text.substr(0, at + end.size());
        }
    }
    const std::string_view special = text.starts_with("<!DOCTYPE") ? "\"'>[" : "\"'>";
    std::size_t at = text.find_first_of(special);
    while (at != std::string_view::npos && (text[at] == '"' || text[at] == '\'')) {
        const std::size_t closing = text.find(text[at], at + 1);
        at = closing == std::string_view::npos ? closing : text.find_first_of(special, closing + 1);
    }
    return at == std::string_view::npos ? text : text.substr(0, at + 1);
}

// Reads the names and the quoted texts of one markup.
class CMarkupReader {
public:
    explicit CMarkupReader(std::string_view markup) : m_rest(markup) {}

    // The next name; empty at the end.
    std::string_view Name()
    {
        Skip(" \t\r\n=/>");
        return Take(m_rest.find_first_of(" \t\r\n=/>\"'"));
    }

    // The quoted text that comes next, if one does.
    std::optional<std::string_view> Quoted()
    {
        Skip(" \t\r\n=");
        if (m_rest.empty() || (m_rest.front() != '"' && m_rest.front() != '\'')) {
            return std::nullopt;
        }
        const char quote = m_rest.front();
        m_rest.remove_prefix(1);
        const std::string_view text = Take(m_rest.find(quote));
        Take(1);
        return text;
    }

private:
    void Skip(std::string_view characters) { Take(m_rest.find_first_not_of(characters)); }
    std::string_view Take(std::size_t size)
    {
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    std::string_view m_rest;
};

// The prefixes that the open elements declare.
class CPrefixes {
public:
    // Takes the next tag. False when it has a name whose prefix is not declared.
    bool TakeTag(std::string_view tag)
    {
        if (tag.starts_with("</")) {
            Close();
            return true;
        }
        m_marks.push_back(m_names.size());
        const bool isDeclared = Open(CMarkupReader(tag.substr(1)));
        if (tag.ends_with("/>")) {
            Close();
        }
        return isDeclared;
    }

private:
    bool Open(CMarkupReader tag)
    {
        std::vector<std::string_view> used;
        const auto use = [&used](std::string_view name) {
            const std::size_t colon = name.find(':');
            if (colon != std::string_view::npos && colon != 0) {
                used.push_back(name.substr(0, colon));
            }
        };
        use(tag.Name());
        for (std::string_view name = tag.Name(); !name.empty(); name = tag.Name()) {
            constexpr std::string_view kDeclaration = "xmlns:";
            const std::string_view value = tag.Quoted().value_or(std::string_view());
            if (!name.starts_with(kDeclaration)) {
                use(name);
            } else if (!value.empty()) {
                m_names.push_back(name.substr(kDeclaration.size()));
                ++m_counts[m_names.back()];
            }
        }
        return std::all_of(used.begin(), used.end(), [this](std::string_view prefix) {
            const auto found = m_counts.find(prefix);
            return prefix == "xml" || (found != m_counts.end() && found->second != 0);
        });
    }

    void Close()
    {
        if (m_marks.empty()) {
            return;
        }
        for (; m_names.size() > m_marks.back(); m_names.pop_back()) {
            --m_counts[m_names.back()];
        }
        m_marks.pop_back();
    }

    std::vector<std::string_view> m_names; // those of inner elements behind those of outer ones
    std::vector<std::size_t> m_marks;      // where those of each open element begin
    std::unordered_map<std::string_view, std::size_t> m_counts;
};

std::string EncodeCharacter(char32_t character)
{
    if (sizeof(wchar_t) == 2 && character > 0xFFFF) {
        const std::array<wchar_t, 2> pair = {static_cast<wchar_t>(0xD7C0 + (character >> 10)),
                                             static_cast<wchar_t>(0xDC00 + (character & 0x3FF))};
        return EncodeUtf8({pair.data(), pair.size()});
    }
    return EncodeUtf8(std::wstring(1, static_cast<wchar_t>(character)));
}

// A text with its character references replaced, as it happens to an entity's text when it is declared. References to
// entities can come of it.
std::string ReplaceCharacterReferences(std::string_view text)
{
    std::string replaced;
    for (;;) {
        const std::size_t start = text.find("&#");
        replaced += text.substr(0, start);
        if (start == std::string_view::npos) {
            return replaced;
        }
        text.remove_prefix(start + 2);
        const bool isHexadecimal = text.starts_with('x');
        text.remove_prefix(isHexadecimal ? 1 : 0);
        std::uint32_t character = 0;
        const char* end =
            std::from_chars(text.data(), text.data() + text.size(), character, isHexadecimal ? 16 : 10).ptr;
        replaced += EncodeCharacter(character);
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        text.remove_prefix(text.starts_with(';') ? 1 : 0);
    }
}

// The entities of a document and how much they stand for.
class CEntities {
public:
    // Takes an entity declaration. The first one of a name counts.
    void Declare(std::string_view declaration)
    {
        CMarkupReader reader(declaration.substr(std::string_view("<!ENTITY").size()));
        const std::string_view name = reader.Name();
        if (name != "%") {
            // An entity outside the document is not fetched and stands for nothing.
            m_entities.try_emplace(name, CEntity{ReplaceCharacterReferences(reader.Quoted().value_or("")), {}});
            return;
        }
        reader.Name();
        m_areHidden = m_areHidden || reader.Quoted().has_value();
    }

    bool IsEmpty() const { return m_entities.empty() && !m_areHidden; }

    // How many bytes the references in a text stand for; kTooMany at most.
    std::size_t Expanded(std::string_view text, unsigned depth = 0)
    {
        std::size_t bytes = 0;
        for (std::size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&', at + 1)) {
            const std::size_t end = text.find_first_of("&<;", at + 1);
            if (end != std::string_view::npos && text[end] == ';' && text[at + 1] != '#') {
                bytes = Sum(bytes, BytesOf(text.substr(at + 1, end - at - 1), depth));
            }
        }
        return bytes;
    }

private:
    struct CEntity {
        std::string text;
        std::optional<std::size_t> bytes; // empty: not counted yet
    };

    std::size_t BytesOf(std::string_view name, unsigned depth)
    {
        constexpr std::string_view kPredefined[] = {"amp", "lt", "gt", "apos", "quot"};
        if (std::find(std::begin(kPredefined), std::end(kPredefined), name) != std::end(kPredefined)) {
            return 1;
        }
        if (m_areHidden || depth > kDeepest) {
            return kTooMany;
        }
        const auto found = m_entities.find(name);
        if (found == m_entities.end()) {
            return 0; // the parser refuses it, or it is declared where nothing is fetched from
        }
        CEntity& entity = found->second;
        if (!entity.bytes) {
            entity.bytes = kTooMany; // should it contain itself
            entity.bytes = Sum(entity.text.size(), Expanded(entity.text, depth + 1));
        }
        return *entity.bytes;
    }

    std::unordered_map<std::string_view, CEntity> m_entities;
    bool m_areHidden = false; // some may be declared by the text of parameter entities
};

bool MayBeParsedAsText(std::string_view text)
{
    CPrefixes prefixes;
    CEntities entities;
    std::size_t expanded = 0;
    for (;;) {
        const std::size_t start = text.find('<');
        const std::string_view between = text.substr(0, start);
        text.remove_prefix(between.size());
        const std::string_view markup = MarkupAt(text);
        text.remove_prefix(markup.size());

        const bool isTag = !markup.starts_with("<!") && !markup.starts_with("<?");
        if (markup.starts_with("<!ENTITY")) {
            entities.Declare(markup);
        } else if (isTag && !markup.empty() && !prefixes.TakeTag(markup)) {
            return false;
        }
        if (!entities.IsEmpty()) {
            const bool hasReferences = isTag || markup.starts_with("<!ATTLIST");
            expanded = Sum(expanded, Sum(entities.Expanded(between), hasReferences ? entities.Expanded(markup) : 0));
        }
        if (expanded > kMostBytes) {
            return false;
        }
        if (markup.empty()) {
            return true;
        }
    }
}

// A document in UTF-16 as UTF-8; nothing when it is in an encoding of bytes.
std::optional<std::string> Utf16AsUtf8(std::string_view bytes)
{
    const bool isLittleEndian = bytes.starts_with("\xFF\xFE") || bytes.starts_with(std::string_view("<\0", 2));
    const bool isBigEndian = bytes.starts_with("\xFE\xFF") || bytes.starts_with(std::string_view("\0<", 2));
    if (!isLittleEndian && !isBigEndian) {
        return std::nullopt;
    }
    std::vector<BYTE> units(bytes.begin(), bytes.end());
    for (std::size_t i = 1; isBigEndian && i < units.size(); i += 2) {
        std::swap(units[i - 1], units[i]);
    }
    return EncodeUtf8(DecodeUtf16(units));
}

} // namespace

bool MayBeParsed(std::string_view bytes)
{
    const std::optional<std::string> decoded = Utf16AsUtf8(bytes);
    const std::string_view text = decoded ? std::string_view(*decoded) : bytes;
    return MayBeParsedAsText(text.substr(0, text.find('\0')));
}

} // namespace platform::portable
