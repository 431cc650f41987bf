#include "server/live/WholeFile.h"

#include <fstream>
#include <stdexcept>

namespace reportd {

std::string ReadWholeFile(const std::filesystem::path& file, std::uintmax_t mostMib)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(file, error); // fails for folders and devices
    if (error) {
        throw std::runtime_error("cannot be read: " + error.message());
    }
    if (size > mostMib << 20U) {
        throw std::runtime_error("is larger than " + std::to_string(mostMib) + " MiB");
    }
    std::ifstream stream(file, std::ios::binary);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(size));
    if (!stream) {
        throw std::runtime_error("cannot be read");
    }
    return bytes;
}

} // namespace reportd
