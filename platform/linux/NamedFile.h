// The files that named mutexes and events are.
#pragma once

#include "platform/linux/FileDescriptor.h"
#include "platform/Security.h"

#include <string>
#include <string_view>

namespace platform::linux {

// The file name of a named object, "Global\\" removed before; empty when the name cannot be one of a file.
std::string FileNameOf(std::wstring_view name);

// Where the file of a named object is, empty when its folder is not known; nothing is looked at or made.
std::string NamedFilePath(std::wstring_view name);

enum class NamedKind {
    kMutex, // a regular file
    kEvent, // a FIFO
};

// Opens the file of a named object for reading and writing, without blocking, made when there is none. It lies in the
// session folder, or, for a name with the prefix "Global\", in $AMPORA_LOCK_DIR (default /run/lock). It stays when the
// object goes and serves the next one of its name; so whether the object exists is another question (ClaimExistence).
//
// name: of characters that a file name may have; security: rights of a new file, null for the user's alone. None, with
// the calling thread's last error set, on failure; error 6 when the path is a file of another kind, or a symbolic link.
CFileDescriptor OpenNamedFile(std::wstring_view name, NamedKind kind, const CSecurityDescriptor* security);
// As OpenNamedFile, but does not make the file: error 2 when there is none.
CFileDescriptor OpenExistingFile(std::wstring_view name, NamedKind kind);

// An object exists while some open file of it, in whatever process, has a lock on its first byte: an open file
// description lock, which the system takes away with the file, also from a process that is killed. It has nothing to do
// with the flock that means ownership of a mutex.
enum class Existence {
    kUnknown, // failure, errno set
    kNew,     // nobody has the object: the caller is alone until it calls ShareExistence
    kOld,     // somebody has it; the lock is shared already
};

// Claims a lock of its own for an open file. Waits for the moment that another process takes to make the object, at
// most kBriefLimit (BriefRetry.h): after that failure with ETIMEDOUT.
Existence ClaimExistence(const CFileDescriptor& file);
// As ClaimExistence, but only for an object that exists: failure with ENOENT when no process has it.
Existence JoinExistence(const CFileDescriptor& file);
// Lets others open the object that the caller has made. False, with errno set, on failure.
bool ShareExistence(const CFileDescriptor& file);
// Lets go of the lock while the file stays open.
void DropExistence(const CFileDescriptor& file);

} // namespace platform::linux
