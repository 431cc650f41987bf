#include "testing/ScratchFolder.h"

#include <fstream>
#include <iterator>
#include <random>

namespace testing_support {

CScratchFolder::CScratchFolder() : CScratchFolder(std::filesystem::temp_directory_path()) {}

CScratchFolder::CScratchFolder(const std::filesystem::path& parent)
{
    std::random_device random;
    do {
        m_path = parent / ("ampora-test-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(m_path));
}

CScratchFolder::~CScratchFolder()
{
    std::error_code ignored; // a test's result does not depend on what it leaves behind
    std::filesystem::remove_all(m_path, ignored);
}

std::filesystem::path CScratchFolder::Write(const std::string& name, const std::string& bytes) const
{
    std::filesystem::path path = m_path / name;
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << bytes;
    return path;
}

std::filesystem::path FolderInMemory()
{
    const std::filesystem::path folder = "/dev/shm";
    std::error_code ignored;
    return std::filesystem::is_directory(folder, ignored) ? folder : std::filesystem::temp_directory_path();
}

std::string FileBytes(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace testing_support
