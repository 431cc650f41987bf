#include "platform/Files.h"

#include "platform/Clock.h"
#include "platform/LastError.h"
#include "platform/sim/MachineState.h"
#include "platform/sim/SecurityDescriptor.h"

#include <algorithm>
#include <filesystem>

namespace platform {

using sim::Call;
using sim::DiskEntry;

namespace {

constexpr wchar_t kSeparator[] = {static_cast<wchar_t>(std::filesystem::path::preferred_separator), 0};

std::shared_ptr<DiskEntry> EntryAt(const CString& path)
{
    const auto& disk = sim::Machine().disk;
    const auto found = disk.find(path);
    return found == disk.end() ? nullptr : found->second;
}

std::shared_ptr<DiskEntry> AddEntry(const CString& path, sim::SimFile file)
{
    return sim::Machine().disk[path] =
               std::make_shared<DiskEntry>(DiskEntry{std::move(file), false, sim::Machine().UtcNow()});
}

// Why a file cannot be opened for writing; ERROR_SUCCESS when it can. entry: null for a new file.
DWORD OpenError(const CString& path, const DiskEntry* entry)
{
    if (!sim::Machine().FolderExists(sim::MachineState::FolderOf(path))) {
        return ERROR_PATH_NOT_FOUND;
    }
    if (entry == nullptr) {
        return ERROR_SUCCESS;
    }
    if (entry->file.isFolder || entry->file.readOnly) {
        return ERROR_ACCESS_DENIED;
    }
    return entry->file.heldOpen || entry->isOpen ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

} // namespace

const wchar_t* const kPathSeparator = kSeparator;

class COutputFile {
public:
    explicit COutputFile(CString path) : m_path(std::move(path)) {}
    // The file is open, and empty, from now on.
    void Open(std::shared_ptr<DiskEntry> entry)
    {
        m_entry = std::move(entry);
        m_entry->file.bytes.clear();
        m_entry->file.writes.clear();
        m_entry->lastWrite = sim::Machine().UtcNow();
        m_entry->isOpen = true;
        if (sim::CObserver* observer = sim::Machine().observer) {
            observer->OnFileOpened(sim::CallingThread(), m_path);
        }
    }
    ~COutputFile()
    {
        if (m_entry == nullptr) {
            return;
        }
        const sim::CMachineMemory memory;
        m_entry->isOpen = false;
        if (sim::CObserver* observer = sim::Machine().observer) {
            observer->OnFileClosed(sim::CallingThread(), m_path, m_entry->file);
        }
        sim::Machine().TellFolderWatches(m_path);
    }
    COutputFile(const COutputFile&) = delete;
    COutputFile& operator=(const COutputFile&) = delete;

    // To be changed.
    sim::SimFile& File() const
    {
        m_entry->lastWrite = sim::Machine().UtcNow();
        return m_entry->file;
    }

private:
    CString m_path;
    std::shared_ptr<DiskEntry> m_entry;
};

BOOL GetCommonAppDataFolder(CString* folder)
{
    folder->clear();
    if (sim::FailsByFault(Call::kGetCommonAppDataFolder)) {
        return FALSE;
    }
    *folder = sim::Machine().commonAppDataFolder;
    if (EntryAt(*folder) == nullptr) {
        AddEntry(*folder, {.isFolder = true});
    }
    return TRUE;
}

BOOL PathExists(const CString& path) { return EntryAt(path) != nullptr; }

BOOL QueryLastWrite(const CString& path, FILETIME* lastWrite)
{
    const std::shared_ptr<DiskEntry> entry = EntryAt(path);
    if (entry == nullptr) {
        const bool folderExists = sim::Machine().FolderExists(sim::MachineState::FolderOf(path));
        SetLastErrorCode(folderExists ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    *lastWrite = FileTimeOf(static_cast<std::uint64_t>(entry->lastWrite));
    return TRUE;
}

BOOL MakeFolder(const CString& path, const CSecurityDescriptor* security)
{
    if (sim::FailsByFault(Call::kMakeFolder)) {
        return FALSE;
    }
    if (PathExists(path)) {
        SetLastErrorCode(ERROR_ALREADY_EXISTS);
        return FALSE;
    }
    if (!sim::Machine().FolderExists(sim::MachineState::FolderOf(path))) {
        SetLastErrorCode(ERROR_PATH_NOT_FOUND);
        return FALSE;
    }
    AddEntry(path, {.isFolder = true, .nullDacl = security->hasNullDacl});
    sim::Machine().TellFolderWatches(path);
    return TRUE;
}

OutputFilePtr OpenForReplace(const CString& path, const CSecurityDescriptor* security)
{
    if (sim::FailsByFault(Call::kOpenForReplace)) {
        return nullptr;
    }
    auto output = std::make_shared<COutputFile>(path); // before anything is changed, since memory may run out here
    std::shared_ptr<DiskEntry> entry = EntryAt(path);
    const DWORD error = OpenError(path, entry.get());
    if (error != ERROR_SUCCESS) {
        SetLastErrorCode(error);
        return nullptr;
    }
    if (entry == nullptr) {
        entry = AddEntry(path, {.nullDacl = security->hasNullDacl});
    }
    output->Open(std::move(entry));
    return output;
}

void WriteFileBytes(const OutputFilePtr& file, const void* bytes, std::size_t size)
{
    if (const auto code = sim::Machine().faults.Take(Call::kWriteFileBytes)) {
        throw CFileException(*code);
    }
    const sim::CMachineMemory memory;
    std::size_t& freeBytes = sim::Machine().freeBytes;
    const std::size_t fitting = std::min(size, freeBytes);
    freeBytes -= fitting;
    const auto* first = static_cast<const BYTE*>(bytes);
    file->File().bytes.insert(file->File().bytes.end(), first, first + fitting);
    file->File().writes.push_back(fitting);
    if (fitting < size) {
        throw CFileException(ERROR_DISK_FULL);
    }
}

DWORD ReadWholeFile(const CString& path, std::size_t maxBytes, std::vector<BYTE>* bytes)
{
    bytes->clear();
    const std::shared_ptr<DiskEntry> entry = EntryAt(path);
    if (entry == nullptr) {
        const bool folderExists = sim::Machine().FolderExists(sim::MachineState::FolderOf(path));
        return folderExists ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    }
    if (entry->file.isFolder) {
        return ERROR_ACCESS_DENIED;
    }
    if (entry->isOpen) {
        return ERROR_SHARING_VIOLATION;
    }
    const std::vector<BYTE>& content = entry->file.bytes;
    const std::size_t size = std::min(maxBytes, content.size());
    bytes->assign(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size));
    return ERROR_SUCCESS;
}

} // namespace platform

namespace platform::sim {

CString MachineState::FolderOf(const CString& path)
{
    const std::size_t separator = path.rfind(kPathSeparator);
    return separator == CString::npos ? CString() : path.substr(0, separator);
}

bool MachineState::FolderExists(const CString& path) const
{
    if (path.find(kPathSeparator) == CString::npos) {
        return true;
    }
    const auto found = disk.find(path);
    return found != disk.end() && found->second->file.isFolder;
}

const SimFile* CMachine::FindFile(const CString& path) const
{
    const auto found = m_state->disk.find(path);
    return found == m_state->disk.end() ? nullptr : &found->second->file;
}

std::vector<CString> CMachine::FilePaths() const
{
    std::vector<CString> paths;
    for (const auto& [path, entry] : m_state->disk) {
        if (!entry->file.isFolder) {
            paths.push_back(path);
        }
    }
    return paths;
}

void CMachine::PutFile(const CString& path, SimFile file)
{
    for (CString folder = MachineState::FolderOf(path); !m_state->FolderExists(folder);
         folder = MachineState::FolderOf(folder)) {
        AddEntry(folder, {.isFolder = true});
    }
    AddEntry(path, std::move(file));
    m_state->TellFolderWatches(path);
}

void CMachine::RemoveFile(const CString& path)
{
    const CString below = path + kPathSeparator;
    std::erase_if(m_state->disk,
                  [&](const auto& entry) { return entry.first == path || entry.first.starts_with(below); });
    m_state->TellFolderWatches(path);
}

void CMachine::SetCommonAppDataFolder(const CString& path) { m_state->commonAppDataFolder = path; }

void CMachine::SetFreeBytes(std::size_t bytes) { m_state->freeBytes = bytes; }

} // namespace platform::sim
