// A folder of the real disk for one test.
#pragma once

#include <filesystem>
#include <string>

namespace testing_support {

// A new, empty folder with a name of its own below the system's folder for temporary files; deleted, with all that is
// in it, at the end. Throws std::filesystem::filesystem_error when that cannot be made.
class CScratchFolder {
public:
    CScratchFolder();
    // The same below another folder.
    explicit CScratchFolder(const std::filesystem::path& parent);
    ~CScratchFolder();
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

    // Writes a file of these bytes, replacing one of that name, and gives its path.
    std::filesystem::path Write(const std::string& name, const std::string& bytes) const;

private:
    std::filesystem::path m_path;
};

// A parent for a scratch folder that is kept in memory, for a test that would wait for the disk thousands of times; the
// folder for temporary files where there is none.
std::filesystem::path FolderInMemory();

// The bytes of a file; empty when there is none.
std::string FileBytes(const std::filesystem::path& path);

} // namespace testing_support
