#include "platform/Settings.h"

#include "platform/linux/FileBytes.h"
#include "platform/linux/RegFile.h"
#include "platform/linux/SettingsFile.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <sys/stat.h>

namespace platform {

namespace {

// What tells that a file is the same and has not been changed.
struct Identity {
    explicit Identity(const struct stat& status)
        : device(status.st_dev), inode(status.st_ino), size(status.st_size), written(status.st_mtim),
          changed(status.st_ctim)
    {
    }

    friend bool operator==(const Identity& one, const Identity& other)
    {
        return one.device == other.device && one.inode == other.inode && one.size == other.size &&
               one.written.tv_sec == other.written.tv_sec && one.written.tv_nsec == other.written.tv_nsec &&
               one.changed.tv_sec == other.changed.tv_sec && one.changed.tv_nsec == other.changed.tv_nsec;
    }

    dev_t device;
    ino_t inode;
    off_t size;
    timespec written;
    timespec changed;
};

// A value that was looked up; none when the file does not have it.
struct Answer {
    CString keyPath;
    CString valueName;
    std::optional<SettingsValue> value;
};

// What a hive's file holds, as far as it was asked for.
struct Content {
    std::optional<Identity> identity = {}; // none: of no file, or of one that may not be kept
    std::vector<BYTE> bytes = {};
    std::vector<Answer> answers = {};
};

constinit std::mutex g_lock;
constinit Content g_contents[2]; // by hive

// Whether each later change of the file gives it another time of change. That time is the system's, who sets it in
// steps of some milliseconds (some file systems: 2 s), and the clock may be set back.
bool WillChangeShow(const struct stat& status)
{
    constexpr std::time_t kStepSeconds = 2;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return status.st_ctim.tv_sec < now.tv_sec - kStepSeconds;
}

// Reads a file that exists. Empty when it cannot be read, is no regular file or is too long.
void ReadContent(const std::string& path, Content* content)
{
    constexpr std::size_t kMaxKeptBytes = 65536;
    *content = {};
    // Without blocking, for the path may be a FIFO that nobody writes to.
    const linux::CFileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (!file || ::fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    const bool willChangeShow = WillChangeShow(status); // before it is read
    if (linux::ReadBytes(file, linux::kMaxSettingsFileSize + 1, &content->bytes) != ERROR_SUCCESS ||
        content->bytes.size() > linux::kMaxSettingsFileSize) {
        *content = {};
    } else if (willChangeShow && content->bytes.size() <= kMaxKeptBytes) {
        content->identity = Identity(status);
    }
}

// Brings the content of a hive's file up to date.
void Renew(Hive hive, Content* content)
{
    for (const std::string& path : linux::SettingsFilePaths(hive)) {
        struct stat status = {};
        if (::stat(path.c_str(), &status) != 0) {
            if (errno == ENOENT || errno == ENOTDIR) {
                continue;
            }
            break; // it exists but cannot be read, so it counts as found
        }
        if (content->identity != Identity(status)) {
            ReadContent(path, content);
        }
        return;
    }
    *content = {};
}

} // namespace

BOOL QuerySettingsValue(Hive hive, const CString& keyPath, const wchar_t* valueName, SettingsValue* value)
{
    *value = {};
    const std::scoped_lock lock(g_lock);
    Content& content = g_contents[static_cast<std::size_t>(hive)];
    Renew(hive, &content);
    if (content.bytes.empty()) {
        return FALSE;
    }
    auto answer = std::find_if(content.answers.begin(), content.answers.end(), [&](const Answer& each) {
        return each.keyPath == keyPath && each.valueName == valueName;
    });
    if (answer == content.answers.end()) {
        SettingsValue found;
        const bool isFound = linux::FindRegValue(content.bytes, linux::KeyInFile(hive, keyPath), valueName, &found);
        answer = content.answers.insert(answer, {keyPath, valueName, isFound ? std::optional(found) : std::nullopt});
    }
    if (!answer->value) {
        return FALSE;
    }
    *value = *answer->value;
    return TRUE;
}

} // namespace platform
