// Files as a user names them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace reportd {

// The bytes of a file. Throws std::runtime_error for one that cannot be read or has more than mostMib mebibytes; what()
// says why, without the file's name: "cannot be read: No such file or directory". Any thread.
std::string ReadWholeFile(const std::filesystem::path& file, std::uintmax_t mostMib);

} // namespace reportd
