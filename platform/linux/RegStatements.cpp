#include "platform/linux/RegStatements.h"

#include "platform/LetterCase.h"
#include "platform/portable/Utf16.h"

#include <algorithm>

namespace platform::linux {

namespace {

using Text = std::wstring_view;

constexpr Text kBlanks = L" \t";

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

std::optional<SettingsValue> TakeNumber(Text& line)
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

std::optional<SettingsValue> TakeString(Text& line)
{
    std::optional<CString> content = TakeQuoted(line);
    if (!content || !IsLineEnd(line)) {
        return std::nullopt;
    }
    content->push_back(L'\0');
    return SettingsValue{REG_SZ, portable::EncodeUtf16(*content)};
}

// Reads what follows the equals sign; lines that bytes go on in are taken from rest, and nothing from line then.
std::optional<SettingsValue> TakeData(Text& line, Text& rest)
{
    if (line.starts_with(L"hex")) {
        return ReadHex(JoinLines(line.substr(3), rest));
    }
    return TakePrefix(line, L"dword:") ? TakeNumber(line) : TakeString(line);
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

std::size_t CountOf(wchar_t character, Text text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), character));
}

// What a line that begins as a value does says. Lines that it goes on in are taken from rest.
RegStatement ValueStatement(const Text whole, Text& rest)
{
    RegStatement statement;
    statement.begins = true;
    Text line = whole;
    std::optional<CString> name = TakePrefix(line, L"@") ? CString() : TakeQuoted(line);
    SkipBlanks(line);
    if (!name || !TakePrefix(line, L"=")) {
        return statement;
    }
    statement.equalsSigns = CountOf(L'=', whole.substr(0, whole.size() - line.size()));
    SkipBlanks(line);
    if (TakePrefix(line, L"-")) {
        statement.kind = IsLineEnd(line) ? RegStatement::Kind::kDeletion : RegStatement::Kind::kOther;
    } else if (std::optional<SettingsValue> value = TakeData(line, rest)) {
        statement.kind = RegStatement::Kind::kValue;
        statement.value = std::move(*value);
    }
    // Bytes, which are not taken from the line, hold no semicolon.
    statement.semicolons = CountOf(L';', whole.substr(0, whole.size() - line.size()));
    statement.name = std::move(*name);
    return statement;
}

} // namespace

std::optional<RegStatement> CRegStatements::Next()
{
    if (m_rest.empty()) {
        return std::nullopt;
    }
    const Text before = m_rest;
    const Text line = TakeLine(m_rest);
    RegStatement statement;
    if (IsKeyLine(line)) {
        statement.kind = RegStatement::Kind::kKey;
        statement.begins = true;
        statement.key = ReadKey(line);
    } else if (IsValueLine(line)) {
        statement = ValueStatement(line, m_rest);
    }
    statement.line = m_line;
    m_line += CountOf(L'\n', before.substr(0, before.size() - m_rest.size()));
    statement.endLine = m_rest.empty() && !before.ends_with(L'\n') ? m_line + 1 : m_line;
    return statement;
}

bool DeletesKey(const RegStatement& statement, Text keyPath)
{
    Text parent = statement.key.value_or(Text());
    return TakePrefix(parent, L"-") && EqualsWithoutCase(keyPath.substr(0, parent.size()), parent) &&
           (keyPath.size() == parent.size() || keyPath[parent.size()] == L'\\');
}

} // namespace platform::linux
