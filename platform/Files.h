// Files and folders that other processes share. All functions may be called from any thread.
#pragma once

#include "platform/CodeException.h"
#include "platform/Security.h"
#include "platform/Types.h"

#include <memory>
#include <vector>

namespace platform {

// What separates the parts of a path: L"\\" on Windows, L"/" elsewhere.
extern const wchar_t* const kPathSeparator;

// A write that failed.
class CFileException : public CCodeException<DWORD> {
public:
    // code: the last-error code, such as 112 (disk full).
    explicit CFileException(DWORD code) : CCodeException("file exception", code) {}
};

// The folder for data common to all users, without a separator at its end, created when missing.
// FALSE, with *folder emptied, when it is unknown.
BOOL GetCommonAppDataFolder(CString* folder);

// Whether anything, of whatever kind, has this path.
BOOL PathExists(const CString& path);

// When the content of a file was last written, in UTC. Opens nothing, so no writer is kept out. FALSE, with the last
// error set, on failure: 2 or 3 when there is none. lastWrite: must not be null.
BOOL QueryLastWrite(const CString& path, FILETIME* lastWrite);

// Creates a folder, one level only. security: its rights; must not be null. FALSE, last error set, on failure.
BOOL MakeFolder(const CString& path, const CSecurityDescriptor* security);

// A file open for writing, shared with nobody; closed when the last reference goes.
class COutputFile;
using OutputFilePtr = std::shared_ptr<COutputFile>;

// Opens a file for writing, empty: an existing one is truncated, but only after it has been opened. security: rights
// of a new file; must not be null. Null, with the last error set and an existing file unchanged, on failure, also when
// another process has it open, and (Linux) when the path is a symbolic link, anything but a regular
// file, or a file with a second hard link.
OutputFilePtr OpenForReplace(const CString& path, const CSecurityDescriptor* security);

// Appends size bytes in one write. Throws CFileException when not all of them could be written.
void WriteFileBytes(const OutputFilePtr& file, const void* bytes, std::size_t size);

// Reads a whole file while no writer has it open. maxBytes: a longer file is read up to there. Returns ERROR_SUCCESS
// with *bytes filled, or the error code (2 or 3 when there is none, 32 while a writer has it open) with *bytes emptied.
DWORD ReadWholeFile(const CString& path, std::size_t maxBytes, std::vector<BYTE>* bytes);

} // namespace platform
