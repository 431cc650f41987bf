// Settings files: the text that the Windows registry editor exports and imports.
//
//   Windows Registry Editor Version 5.00
//
//   ; a comment
//   [HKEY_CURRENT_USER\Software\Name]
//   "Number"=dword:0000001f
//   "Text"="quotes \" and backslashes \\"
//   @="the value without a name"
//   "Bytes"=hex:01,02,03
//   "Other"=hex(b):01,00,00,00,00,00,00,00
//   "Gone"=-
//   [-HKEY_CURRENT_USER\Software\Name\Sub]
//
// Bytes go on in the next line after a comma and a backslash at a line's end. Numbers in hex( ) are registry value
// types, their bytes as the registry has them (text in UTF-16). UTF-8, with or without byte order mark, or UTF-16
// little-endian with one; lines end in LF or CRLF. Names of keys and values compare without case, as far as ASCII
// letters go.
#pragma once

#include "platform/Settings.h"

#include <span>
#include <string_view>

namespace platform::linux {

// How a file's text is encoded.
struct RegEncoding {
    std::size_t markSize = 0; // of the byte order mark at its beginning, in bytes
    bool isUtf16 = false;
};
RegEncoding EncodingOf(std::span<const BYTE> bytes);

// The text of a file, without its byte order mark. Each line feed of the file is one of the text, and there are no
// others. What is ill-formed becomes U+FFFD; an odd last byte of UTF-16 is dropped.
CString DecodeRegText(std::span<const BYTE> bytes);

// Finds one value as it were in the registry after the import of this file into an empty one: a later line counts more
// than an earlier one, and what is deleted is gone. bytes: the file; keyPath: with the root's full name
// ("HKEY_CURRENT_USER\..."); valueName: empty for the value without a name. False, with *value emptied, when there is
// none. A line that does not follow the format is ignored; values below a key line that does not belong to no key.
// Stateless, any thread.
bool FindRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath, std::wstring_view valueName,
                  SettingsValue* value);

} // namespace platform::linux
