#include "platform/linux/RegFile.h"

#include "platform/LetterCase.h"
#include "platform/portable/Utf16.h"
#include "platform/Text.h"

#include <algorithm>
#include <optional>

namespace platform::linux {

namespace {

using Text = std::wstring_view;

constexpr Text kBlanks = L" \t";

CString DecodeFile(std::span<const BYTE> bytes)
{
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
        return portable::DecodeUtf16(bytes.subspan(2));
    }
    if (bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
        bytes = bytes.subspan(3);
    }
    return DecodeUtf8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Takes the text up to the next line end, without that and without blanks at both ends.
Text TakeLine(Text& text)
{
    const std::size_t end = text.find(L'\n');
    Text line = text.substr(0, end);
    text.remove_prefix(end == Text::npos ? text.size() : end + 1);
    if (line.ends_with(L'\r')) {
        line.remove_suffix(1);
    }
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    return line.substr(0, line.find_last_not_of(kBlanks) + 1);
}

void SkipBlanks(Text& text) { text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size())); }

bool TakePrefix(Text& text, Text prefix)
{
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

// Whether nothing more follows on a line.
bool IsLineEnd(Text text)
{
    SkipBlanks(text);
    return text.empty() || text.front() == L';';
}

// Whether a key is another one or lies below it.
bool IsWithin(Text key, Text parent)
{
    return EqualsWithoutCase(key.substr(0, parent.size()), parent) &&
           (key.size() == parent.size() || key[parent.size()] == L'\\');
}

std::optional<DWORD> HexDigit(wchar_t character)
{
    if (character >= L'0' && character <= L'9') {
        return static_cast<DWORD>(character - L'0');
    }
    const wchar_t lower = LowerCase(character);
    if (lower >= L'a' && lower <= L'f') {
        return static_cast<DWORD>(lower - L'a' + 10);
    }
    return std::nullopt;
}

// Takes a number of at least one and at most maxDigits hexadecimal digits.
std::optional<DWORD> TakeHexNumber(Text& text, std::size_t maxDigits)
{
    DWORD number = 0;
    std::size_t digits = 0;
    for (; digits < text.size(); ++digits) {
        const std::optional<DWORD> digit = HexDigit(text[digits]);
        if (!digit) {
            break;
        }
        if (digits == maxDigits) {
            return std::nullopt;
        }
        number = number << 4 | *digit;
    }
    if (digits == 0) {
        return std::nullopt;
    }
    text.remove_prefix(digits);
    return number;
}

// Takes a text in quotes, in which a backslash stands before a quote and before another backslash.
std::optional<CString> TakeQuoted(Text& text)
{
    if (!TakePrefix(text, L"\"")) {
        return std::nullopt;
    }
    CString content;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == L'"') {
            text.remove_prefix(i + 1);
            return content;
        }
        if (text[i] == L'\\' && i + 1 < text.size() && (text[i + 1] == L'"' || text[i + 1] == L'\\')) {
            ++i;
        }
        content.push_back(text[i]);
    }
    return std::nullopt;
}

bool IsKeyLine(Text line) { return line.starts_with(L'['); }

bool IsValueLine(Text line) { return line.starts_with(L'"') || line.starts_with(L'@'); }

// Appends to line the lines that it goes on in, after a backslash at its end, and takes them from rest.
CString JoinLines(Text line, Text& rest)
{
    CString joined;
    while (line.ends_with(L'\\')) {
        Text after = rest;
        const Text next = TakeLine(after);
        if (IsKeyLine(next) || IsValueLine(next)) {
            break; // the end is missing; what follows still counts
        }
        joined += line.substr(0, line.size() - 1);
        line = next;
        rest = after;
    }
    return joined.append(line);
}

// Reads bytes of one or two digits with commas between them.
std::optional<std::vector<BYTE>> ReadHexBytes(Text text)
{
    std::vector<BYTE> bytes;
    if (IsLineEnd(text)) {
        return bytes;
    }
    for (;;) {
        SkipBlanks(text);
        const std::optional<DWORD> byte = TakeHexNumber(text, 2);
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<BYTE>(*byte));
        if (IsLineEnd(text)) {
            return bytes;
        }
        SkipBlanks(text);
        if (!TakePrefix(text, L",")) {
            return std::nullopt;
        }
    }
}

// Reads what follows "hex".
std::optional<SettingsValue> ReadHex(Text text)
{
    std::optional<DWORD> type = REG_BINARY;
    if (TakePrefix(text, L"(")) {
        type = TakeHexNumber(text, 8);
        if (!type || !TakePrefix(text, L")")) {
            return std::nullopt;
        }
    }
    if (!TakePrefix(text, L":")) {
        return std::nullopt;
    }
    std::optional<std::vector<BYTE>> bytes = ReadHexBytes(text);
    if (!bytes) {
        return std::nullopt;
    }
    return SettingsValue{*type, std::move(*bytes)};
}

std::optional<SettingsValue> ReadNumber(Text line)
{
    const std::optional<DWORD> number = TakeHexNumber(line, 8);
    if (!number || !IsLineEnd(line)) {
        return std::nullopt;
    }
    SettingsValue value{REG_DWORD, {}};
    for (int shift = 0; shift < 32; shift += 8) {
        value.data.push_back(static_cast<BYTE>(*number >> shift));
    }
    return value;
}

std::optional<SettingsValue> ReadString(Text line)
{
    std::optional<CString> content = TakeQuoted(line);
    if (!content || !IsLineEnd(line)) {
        return std::nullopt;
    }
    content->push_back(L'\0');
    return SettingsValue{REG_SZ, portable::EncodeUtf16(*content)};
}

// Reads what follows the equals sign; lines that it goes on in are taken from rest.
std::optional<SettingsValue> ReadData(Text line, Text& rest)
{
    if (TakePrefix(line, L"dword:")) {
        return ReadNumber(line);
    }
    return TakePrefix(line, L"hex") ? ReadHex(JoinLines(line, rest)) : ReadString(line);
}

// The key in a line that begins with a bracket, with the minus sign of a deletion. A key may hold brackets itself: it
// ends at the first one that ends the line.
std::optional<Text> ReadKey(Text line)
{
    line.remove_prefix(1);
    for (std::size_t end = line.find(L']'); end != Text::npos; end = line.find(L']', end + 1)) {
        if (IsLineEnd(line.substr(end + 1))) {
            return line.substr(0, end);
        }
    }
    return std::nullopt;
}

// One walk through a file in search of one value.
class CSearch {
public:
    CSearch(Text keyPath, Text valueName) : m_keyPath(keyPath), m_valueName(valueName) {}

    std::optional<SettingsValue> Run(Text text)
    {
        while (!text.empty()) {
            const Text line = TakeLine(text);
            if (IsKeyLine(line)) {
                TakeKeyLine(line);
            } else if (IsValueLine(line)) {
                TakeValueLine(line, text);
            }
        }
        return std::move(m_found);
    }

private:
    void TakeKeyLine(Text line)
    {
        std::optional<Text> key = ReadKey(line);
        m_inKey = key && EqualsWithoutCase(*key, m_keyPath);
        if (key && TakePrefix(*key, L"-") && IsWithin(m_keyPath, *key)) {
            m_found.reset();
        }
    }

    void TakeValueLine(Text line, Text& rest)
    {
        const std::optional<CString> name = TakePrefix(line, L"@") ? CString() : TakeQuoted(line);
        if (!name) {
            return;
        }
        SkipBlanks(line);
        if (!TakePrefix(line, L"=")) {
            return;
        }
        SkipBlanks(line);
        const bool isWanted = m_inKey && EqualsWithoutCase(*name, m_valueName);
        if (TakePrefix(line, L"-")) {
            if (isWanted && IsLineEnd(line)) {
                m_found.reset();
            }
            return;
        }
        std::optional<SettingsValue> value = ReadData(line, rest);
        if (value && isWanted) {
            m_found = std::move(value);
        }
    }

    Text m_keyPath;
    Text m_valueName;
    bool m_inKey = false;
    std::optional<SettingsValue> m_found;
};

} // namespace

bool FindRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath, std::wstring_view valueName,
                  SettingsValue* value)
{
    const CString text = DecodeFile(bytes);
    std::optional<SettingsValue> found = CSearch(keyPath, valueName).Run(text);
    *value = found ? std::move(*found) : SettingsValue();
    return found.has_value();
}

} // namespace platform::linux
