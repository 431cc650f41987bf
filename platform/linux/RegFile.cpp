#include "platform/linux/RegFile.h"

#include "platform/LetterCase.h"
#include "platform/linux/RegStatements.h"
#include "platform/portable/Utf16.h"
#include "platform/Text.h"

#include <optional>

namespace platform::linux {

namespace {

using Text = std::wstring_view;

// One walk through a file in search of one value.
class CSearch {
public:
    CSearch(Text keyPath, Text valueName) : m_keyPath(keyPath), m_valueName(valueName) {}

    std::optional<SettingsValue> Run(Text text)
    {
        CRegStatements statements(text);
        while (std::optional<RegStatement> statement = statements.Next()) {
            if (statement->kind == RegStatement::Kind::kKey) {
                TakeKey(*statement);
            } else if (m_inKey && EqualsWithoutCase(statement->name, m_valueName)) {
                TakeValue(*statement);
            }
        }
        return std::move(m_found);
    }

private:
    void TakeKey(const RegStatement& statement)
    {
        m_inKey = statement.key && EqualsWithoutCase(*statement.key, m_keyPath);
        if (DeletesKey(statement, m_keyPath)) {
            m_found.reset();
        }
    }

    void TakeValue(RegStatement& statement)
    {
        if (statement.kind == RegStatement::Kind::kValue) {
            m_found = std::move(statement.value);
        } else if (statement.kind == RegStatement::Kind::kDeletion) {
            m_found.reset();
        }
    }

    Text m_keyPath;
    Text m_valueName;
    bool m_inKey = false;
    std::optional<SettingsValue> m_found;
};

} // namespace

RegEncoding EncodingOf(std::span<const BYTE> bytes)
{
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
        return {.markSize = 2, .isUtf16 = true};
    }
    const bool hasMark = bytes.size() >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF;
    return {.markSize = hasMark ? 3U : 0U, .isUtf16 = false};
}

CString DecodeRegText(std::span<const BYTE> bytes)
{
    const RegEncoding encoding = EncodingOf(bytes);
    bytes = bytes.subspan(encoding.markSize);
    return encoding.isUtf16 ? portable::DecodeUtf16(bytes)
                            : DecodeUtf8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

bool FindRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath, std::wstring_view valueName,
                  SettingsValue* value)
{
    const CString text = DecodeRegText(bytes);
    std::optional<SettingsValue> found = CSearch(keyPath, valueName).Run(text);
    *value = found ? std::move(*found) : SettingsValue();
    return found.has_value();
}

} // namespace platform::linux
