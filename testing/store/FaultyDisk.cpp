#include "testing/store/FaultyDisk.h"

#include "testing/ScratchFolder.h"

#include <sqlite3.h>

#include <fstream>
#include <random>

namespace testing_support {

namespace {

// A change that is not synced yet: bytes at an offset, or, without bytes, the new size.
struct PendingChange {
    std::size_t offset = 0;
    std::string bytes;
    bool isTruncation = false;
};

struct FileState {
    std::string synced;
    std::vector<PendingChange> pending;
};

void Apply(const PendingChange& change, std::string& content)
{
    if (change.isTruncation) {
        content.resize(change.offset);
        return;
    }
    content.resize(std::max(content.size(), change.offset + change.bytes.size()));
    content.replace(change.offset, change.bytes.size(), change.bytes);
}

// The functions of a kind of file, and those that they stand in for.
struct FileMethods {
    sqlite3_io_methods own;
    const sqlite3_io_methods* real;
};

const sqlite3_io_methods& RealMethods(sqlite3_file* file)
{
    return *reinterpret_cast<const FileMethods*>(file->pMethods)->real;
}

} // namespace

struct CFaultyDisk::Impl {
    sqlite3_vfs* real = nullptr;
    sqlite3_vfs own = {};
    std::map<const sqlite3_io_methods*, std::unique_ptr<FileMethods>> methods;
    std::map<sqlite3_file*, std::string> names; // of the open files
    std::map<std::string, FileState> states;    // of all files
    std::map<std::string, FileState> remains;
    unsigned changes = 0;
    unsigned failFrom = 0; // 0: never
    unsigned cutAt = 0;    // 0: never
    int failCode = SQLITE_OK;
    bool hasFailed = false;
    bool hasCutPower = false;

    // Every change begins with this; the result is not SQLITE_OK when it must fail.
    int BeginChange()
    {
        ++changes;
        if (changes == cutAt) {
            remains = states;
            hasCutPower = true;
        }
        const bool fails = failFrom != 0 && changes >= failFrom;
        hasFailed = hasFailed || fails;
        return fails ? failCode : SQLITE_OK;
    }

    FileState& StateOf(sqlite3_file* file) { return states[names[file]]; }
};

namespace {

// SQLite's functions have no argument for it.
CFaultyDisk::Impl* theDisk = nullptr;

int Write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset)
{
    if (const int code = theDisk->BeginChange(); code != SQLITE_OK) {
        return code;
    }
    theDisk->StateOf(file).pending.push_back(
        {static_cast<std::size_t>(offset),
         std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(count))});
    return RealMethods(file).xWrite(file, bytes, count, offset);
}

int Truncate(sqlite3_file* file, sqlite3_int64 size)
{
    if (const int code = theDisk->BeginChange(); code != SQLITE_OK) {
        return code;
    }
    theDisk->StateOf(file).pending.push_back({static_cast<std::size_t>(size), {}, true});
    return RealMethods(file).xTruncate(file, size);
}

int Sync(sqlite3_file* file, int /*flags*/)
{
    if (const int code = theDisk->BeginChange(); code != SQLITE_OK) {
        return code;
    }
    FileState& state = theDisk->StateOf(file);
    for (const PendingChange& change : state.pending) {
        Apply(change, state.synced);
    }
    state.pending.clear();
    return SQLITE_OK; // the real disk's turn is not what is tested, and takes long
}

int Close(sqlite3_file* file)
{
    theDisk->names.erase(file);
    return RealMethods(file).xClose(file);
}

int Open(sqlite3_vfs* /*vfs*/, const char* name, sqlite3_file* file, int flags, int* outFlags)
{
    const int code = theDisk->real->xOpen(theDisk->real, name, file, flags, outFlags);
    if (code != SQLITE_OK || file->pMethods == nullptr || name == nullptr) {
        return code;
    }
    auto& methods = theDisk->methods[file->pMethods];
    if (methods == nullptr) {
        methods = std::make_unique<FileMethods>(FileMethods{*file->pMethods, file->pMethods});
        methods->own.xWrite = Write;
        methods->own.xTruncate = Truncate;
        methods->own.xSync = Sync;
        methods->own.xClose = Close;
    }
    file->pMethods = &methods->own;
    theDisk->names[file] = name;
    theDisk->states.try_emplace(name, FileState{FileBytes(name), {}});
    return code;
}

int Delete(sqlite3_vfs* /*vfs*/, const char* name, int syncFolder)
{
    if (const int code = theDisk->BeginChange(); code != SQLITE_OK) {
        return code;
    }
    theDisk->states.erase(name);
    return theDisk->real->xDelete(theDisk->real, name, syncFolder);
}

} // namespace

CFaultyDisk::CFaultyDisk() : m_impl(std::make_unique<Impl>())
{
    m_impl->real = sqlite3_vfs_find(nullptr);
    m_impl->own = *m_impl->real;
    m_impl->own.pNext = nullptr;
    m_impl->own.zName = "faulty";
    m_impl->own.xOpen = Open;
    m_impl->own.xDelete = Delete;
    theDisk = m_impl.get();
    sqlite3_vfs_register(&m_impl->own, 1);
}

CFaultyDisk::~CFaultyDisk()
{
    sqlite3_vfs_unregister(&m_impl->own);
    theDisk = nullptr;
}

void CFaultyDisk::FailFrom(unsigned nth, int code)
{
    m_impl->failFrom = m_impl->changes + nth;
    m_impl->failCode = code;
    m_impl->hasFailed = false;
}

void CFaultyDisk::Repair() { m_impl->failFrom = 0; }

bool CFaultyDisk::HasFailed() const { return m_impl->hasFailed; }

void CFaultyDisk::CutPowerAt(unsigned nth)
{
    m_impl->cutAt = m_impl->changes + nth;
    m_impl->hasCutPower = false;
}

bool CFaultyDisk::HasCutPower() const { return m_impl->hasCutPower; }

void CFaultyDisk::WriteRemains(const std::filesystem::path& from, const std::filesystem::path& to, unsigned seed) const
{
    std::mt19937 random(seed);
    for (const auto& [name, state] : m_impl->remains) {
        const std::filesystem::path file = name;
        if (file.parent_path() != from) {
            continue;
        }
        std::string content = state.synced;
        for (const PendingChange& change : state.pending) {
            if (random() % 2 == 0) {
                Apply(change, content);
            }
        }
        std::ofstream(to / file.filename(), std::ios::binary) << content;
    }
}

} // namespace testing_support
