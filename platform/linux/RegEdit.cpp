#include "platform/linux/RegEdit.h"

#include "platform/LetterCase.h"
#include "platform/linux/RegFile.h"
#include "platform/linux/RegStatements.h"
#include "platform/portable/Utf16.h"
#include "platform/Text.h"

#include <algorithm>

namespace platform::linux {

namespace {

using Bytes = std::vector<BYTE>;
using ByteView = std::span<const BYTE>;
using Kind = RegStatement::Kind;

constexpr std::wstring_view kFirstLine = L"Windows Registry Editor Version 5.00";

// The lines of a file as bytes, each with its end.
class CRawLines {
public:
    explicit CRawLines(ByteView bytes) : m_encoding(EncodingOf(bytes)), m_mark(bytes.first(m_encoding.markSize))
    {
        bytes = bytes.subspan(m_encoding.markSize);
        bytes = bytes.first(bytes.size() - bytes.size() % UnitSize()); // half a unit is none
        while (!bytes.empty()) {
            const std::size_t end = std::min(bytes.size(), After(bytes, L'\n', 1));
            m_lines.push_back(bytes.first(end));
            bytes = bytes.subspan(end);
        }
    }

    ByteView Mark() const { return m_mark; }
    std::size_t Count() const { return m_lines.size(); }
    ByteView Line(std::size_t line) const { return m_lines[line]; }
    // Adjoining lines.
    ByteView Lines(std::size_t line, std::size_t endLine) const
    {
        return {m_lines[line].data(), m_lines[endLine - 1].data() + m_lines[endLine - 1].size()};
    }

    Bytes Encoded(std::wstring_view text) const
    {
        if (m_encoding.isUtf16) {
            return portable::EncodeUtf16(text);
        }
        const std::string bytes = EncodeUtf8(text);
        return {bytes.begin(), bytes.end()};
    }

    // Where the nth such ASCII character ends, counted from 1; beyond the end when there are fewer.
    std::size_t After(ByteView text, wchar_t character, std::size_t nth) const
    {
        for (std::size_t i = 0; i < text.size(); i += UnitSize()) {
            if (Is(text, i, character) && --nth == 0) {
                return i + UnitSize();
            }
        }
        return text.size() + UnitSize();
    }
    // Where the blanks that end at (begin at) a position begin (end).
    std::size_t BlanksBefore(ByteView text, std::size_t position) const
    {
        while (position > 0 && IsBlank(text, position - UnitSize())) {
            position -= UnitSize();
        }
        return position;
    }
    std::size_t BlanksAfter(ByteView text, std::size_t position) const
    {
        while (position < text.size() && IsBlank(text, position)) {
            position += UnitSize();
        }
        return position;
    }
    // What ends this text: LF, CRLF, a CR at the file's end, or nothing.
    ByteView EndOf(ByteView text) const
    {
        std::size_t begin = text.size();
        for (const wchar_t character : {L'\n', L'\r'}) {
            begin -= begin > 0 && Is(text, begin - UnitSize(), character) ? UnitSize() : 0;
        }
        return text.subspan(begin);
    }
    bool EndsWith(ByteView text, wchar_t character) const
    {
        return !text.empty() && Is(text, text.size() - UnitSize(), character);
    }
    // A line without its end and the blanks before that.
    ByteView Content(std::size_t line) const
    {
        const ByteView text = m_lines[line];
        return text.first(BlanksBefore(text, text.size() - EndOf(text).size()));
    }
    // The end that a new line takes over: that of the line before it, else that of the first line, else the usual one.
    Bytes EndFor(std::size_t line) const
    {
        for (const std::size_t model : {line, std::size_t{1}}) {
            const ByteView end = model > 0 && model <= m_lines.size() ? EndOf(m_lines[model - 1]) : ByteView();
            if (EndsWith(end, L'\n')) {
                return {end.begin(), end.end()};
            }
        }
        return Encoded(m_encoding.isUtf16 ? L"\r\n" : L"\n");
    }

private:
    std::size_t UnitSize() const { return m_encoding.isUtf16 ? 2 : 1; }
    bool Is(ByteView text, std::size_t position, wchar_t character) const
    {
        return text[position] == static_cast<BYTE>(character) && (UnitSize() == 1 || text[position + 1] == 0);
    }
    bool IsBlank(ByteView text, std::size_t position) const
    {
        return Is(text, position, L' ') || Is(text, position, L'\t');
    }

    RegEncoding m_encoding;
    ByteView m_mark;
    std::vector<ByteView> m_lines;
};

void Append(Bytes& bytes, ByteView more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

CString Quoted(std::wstring_view text)
{
    CString quoted = L"\"";
    for (const wchar_t character : text) {
        if (character == L'"' || character == L'\\') {
            quoted.push_back(L'\\');
        }
        quoted.push_back(character);
    }
    return quoted + L"\"";
}

// Whether the registry editor would write a text in quotes, and gets the same bytes from that again.
bool IsPlainText(const SettingsValue& value, std::wstring_view text)
{
    const bool isPlain = std::ranges::all_of(text, [](wchar_t character) {
        return character >= L' ' && (character < 0xD800 || character > 0xDFFF) && character != 0x7F;
    });
    CString terminated(text);
    terminated.push_back(L'\0');
    return value.type == REG_SZ && isPlain && portable::EncodeUtf16(terminated) == value.data;
}

// What stands after the equals sign.
CString DataText(const SettingsValue& value)
{
    if (value.type == REG_DWORD && value.data.size() == 4) {
        const std::vector<BYTE>& data = value.data;
        return FormatText(L"dword:%02x%02x%02x%02x", data[3], data[2], data[1], data[0]);
    }
    if (const CString text = TextOfSetting(value); IsPlainText(value, text)) {
        return Quoted(text);
    }
    CString bytes = value.type == REG_BINARY ? L"hex:" : FormatText(L"hex(%x):", value.type);
    for (std::size_t i = 0; i < value.data.size(); ++i) {
        bytes += FormatText(i == 0 ? L"%02x" : L",%02x", value.data[i]);
    }
    return bytes;
}

CString NameText(std::wstring_view valueName) { return valueName.empty() ? L"@" : Quoted(valueName); }

// Whether a statement in a key sets or deletes the value of a name.
bool IsAbout(const RegStatement& statement, std::wstring_view valueName)
{
    return (statement.kind == Kind::kValue || statement.kind == Kind::kDeletion) &&
           EqualsWithoutCase(statement.name, valueName);
}

// Where the values of a name stand in a file.
struct Places {
    std::optional<RegStatement> last;   // the last one that still counts at the file's end, or a deletion that does
    std::optional<std::size_t> section; // the line after the last value of the last section of the key that counts
    std::vector<RegStatement> values;   // all of them
};

Places FindPlaces(std::wstring_view text, std::wstring_view keyPath, std::wstring_view valueName)
{
    Places places;
    bool inKey = false;
    CRegStatements statements(text);
    while (std::optional<RegStatement> statement = statements.Next()) {
        if (statement->kind == Kind::kKey) {
            inKey = statement->key && EqualsWithoutCase(*statement->key, keyPath);
            if (DeletesKey(*statement, keyPath)) {
                places.last.reset();
                places.section.reset();
            }
        }
        if (!inKey || !statement->begins) {
            continue;
        }
        places.section = statement->endLine;
        if (IsAbout(*statement, valueName)) {
            if (statement->kind == Kind::kValue) {
                places.values.push_back(*statement);
            }
            places.last = std::move(statement);
        }
    }
    return places;
}

// The statement with other data: what stands before it, and the comment and line end behind it, stay.
Bytes WithData(const CRawLines& lines, const RegStatement& statement, std::wstring_view data)
{
    const ByteView old = lines.Lines(statement.line, statement.endLine);
    const std::size_t begin = lines.BlanksAfter(old, lines.After(old, L'=', statement.equalsSigns));
    const std::size_t afterSemicolon = lines.After(old, L';', statement.semicolons + 1);
    const Bytes semicolon = lines.Encoded(L";");
    const std::size_t end = afterSemicolon > old.size() ? old.size() - lines.EndOf(old).size()
                                                        : lines.BlanksBefore(old, afterSemicolon - semicolon.size());
    Bytes bytes(old.begin(), old.begin() + static_cast<std::ptrdiff_t>(begin));
    Append(bytes, lines.Encoded(data));
    Append(bytes, old.subspan(end));
    return bytes;
}

// New lines to stand before a line of the file, or at its end.
Bytes NewLines(const CRawLines& lines, std::size_t before, std::vector<CString> texts)
{
    const Bytes end = lines.EndFor(before);
    Bytes bytes;
    if (before > 0 && before == lines.Count()) {
        const ByteView last = lines.Line(before - 1);
        if (!lines.EndsWith(last, L'\n')) {
            Append(bytes, lines.EndsWith(last, L'\r') ? lines.Encoded(L"\n") : end);
        }
        // Bytes that go on beyond the file's end would be taken for torn ones with a value in the next line.
        if (lines.EndsWith(lines.Content(before - 1), L'\\') && !texts.front().empty()) {
            texts.insert(texts.begin(), CString());
        }
    }
    for (const CString& text : texts) {
        Append(bytes, lines.Encoded(text));
        Append(bytes, end);
    }
    return bytes;
}

// The file with lines replaced by others.
Bytes Replace(const CRawLines& lines, std::size_t line, std::size_t endLine, ByteView replacement)
{
    Bytes bytes(lines.Mark().begin(), lines.Mark().end());
    for (std::size_t i = 0; i < line; ++i) {
        Append(bytes, lines.Line(i));
    }
    Append(bytes, replacement);
    for (std::size_t i = endLine; i < lines.Count(); ++i) {
        Append(bytes, lines.Line(i));
    }
    return bytes;
}

} // namespace

std::optional<std::vector<BYTE>> StoreRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath,
                                               std::wstring_view valueName, const SettingsValue& value)
{
    const CRawLines lines(bytes);
    const CString text = DecodeRegText(bytes);
    const Places places = FindPlaces(text, keyPath, valueName);
    const CString data = DataText(value);
    const CString valueLine = NameText(valueName) + L"=" + data;
    Bytes changed;
    if (places.last) {
        changed = Replace(lines, places.last->line, places.last->endLine, WithData(lines, *places.last, data));
    } else if (places.section) {
        changed = Replace(lines, *places.section, *places.section, NewLines(lines, *places.section, {valueLine}));
    } else {
        std::vector<CString> texts = {CString(), L"[" + CString(keyPath) + L"]", valueLine};
        if (lines.Count() == 0) {
            texts.insert(texts.begin(), CString(kFirstLine));
        } else if (lines.Content(lines.Count() - 1).empty()) {
            texts.erase(texts.begin());
        }
        changed = Replace(lines, lines.Count(), lines.Count(), NewLines(lines, lines.Count(), texts));
    }
    // Not every key and name can be written.
    SettingsValue found;
    if (!FindRegValue(changed, keyPath, valueName, &found) || found.type != value.type || found.data != value.data) {
        return std::nullopt;
    }
    return changed;
}

std::vector<BYTE> RemoveRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath, std::wstring_view valueName)
{
    const CRawLines lines(bytes);
    const CString text = DecodeRegText(bytes);
    const Places places = FindPlaces(text, keyPath, valueName);
    Bytes changed(lines.Mark().begin(), lines.Mark().end());
    std::size_t next = 0;
    for (const RegStatement& statement : places.values) {
        for (; next < statement.line; ++next) {
            Append(changed, lines.Line(next));
        }
        next = statement.endLine;
        // Torn bytes of another value, which end before this one, would go on in the line after it.
        if (statement.line > 0 && lines.EndsWith(lines.Content(statement.line - 1), L'\\')) {
            Append(changed, WithData(lines, statement, L"-"));
        }
    }
    for (; next < lines.Count(); ++next) {
        Append(changed, lines.Line(next));
    }
    return changed;
}

} // namespace platform::linux
