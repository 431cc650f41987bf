// Changes of settings files (RegFile.h). All bytes of a file but those of the value that is changed stay as they are:
// comments, the order of lines, their ends, the encoding, and what does not follow the format.
#pragma once

#include "platform/Settings.h"

#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace platform::linux {

// The file with one value stored so that FindRegValue finds it. It takes the place of the one that was found, with the
// comment that follows it; else that of the deletion of the value; else it stands behind the last value of its key;
// else a new key at the file's end. bytes: the file, empty for a new one, which becomes one of UTF-8 with LF; keyPath,
// valueName: as for FindRegValue. None when key or name cannot be written in such a file (a line feed, ...).
// Throws std::bad_alloc only; stateless, any thread.
std::optional<std::vector<BYTE>> StoreRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath,
                                               std::wstring_view valueName, const SettingsValue& value);

// The file without one value, wherever it is set in its key, and without the comments that follow it in its lines.
std::vector<BYTE> RemoveRegValue(std::span<const BYTE> bytes, std::wstring_view keyPath, std::wstring_view valueName);

} // namespace platform::linux
