// The statements of a settings file (RegFile.h), one after the other.
#pragma once

#include "platform/Settings.h"

#include <optional>
#include <string_view>

namespace platform::linux {

// A statement, with the lines of the file that it takes: one, or more when bytes go on in the next line.
struct RegStatement {
    enum class Kind {
        kOther, // nothing: a comment, a blank line, the first line, what does not follow the format
        kKey,
        kValue,
        kDeletion, // of a value
    };
    Kind kind = Kind::kOther;
    bool begins = false;     // like a key or a value, well-formed or not; bytes that go on end before it
    std::size_t line = 0;    // its first line, counted from 0
    std::size_t endLine = 0; // the one after its last line

    std::optional<std::wstring_view> key; // kKey: with the minus sign of a deletion; none when it is malformed
    CString name;                         // kValue, kDeletion: of the value; empty for the one without a name
    SettingsValue value;                  // kValue
    // Where data stands in the lines of a kValue or kDeletion: it begins after this many equals signs, and this many
    // semicolons come before that of a comment.
    std::size_t equalsSigns = 0;
    std::size_t semicolons = 0;
};

// Reads the statements of a decoded file, which must live as long. One thread.
class CRegStatements {
public:
    explicit CRegStatements(std::wstring_view text) : m_rest(text) {}

    // The next one; none at the end of the file.
    std::optional<RegStatement> Next();

private:
    std::wstring_view m_rest;
    std::size_t m_line = 0;
};

// Whether a kKey deletes a key, itself or with one that this key lies below.
bool DeletesKey(const RegStatement& statement, std::wstring_view keyPath);

} // namespace platform::linux
