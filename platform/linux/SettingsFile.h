// The files that the settings store consists of.
#pragma once

#include "platform/Settings.h"

#include <string>
#include <vector>

namespace platform::linux {

// In bytes. A longer file cannot be one of settings and counts as missing.
inline constexpr std::size_t kMaxSettingsFileSize = 16U << 20;

// Where a hive's file may be; the first one that is there counts. Empty when the environment names no folder for it.
// Any thread.
std::vector<std::string> SettingsFilePaths(Hive hive);

// A key with its root, as it stands in a file.
CString KeyInFile(Hive hive, const CString& keyPath);

} // namespace platform::linux
