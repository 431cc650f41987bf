// Where the data files are.
#pragma once

#include "platform/Types.h"

// Folder of the data files, below the common application-data folder.
inline constexpr const wchar_t* kSaveFolderName = L"AmporaSrv";

// The word that names a company's files, by site number; null for a number without a company.
const wchar_t* FileKeyOfSite(int siteNumber);

// Builds the path of a company's data file of one kind: "folder\key_TTTTTTTT.dat", T the data type code in upper-case
// hexadecimal, cut to the buffer. buffer: zero-terminated on success. dataType: data type code. When the common folder
// is unknown the folder part is empty. Creates nothing but, where the system does, the common folder.
// False with last error 50 and the buffer untouched when the site number has no company. Any thread.
bool GetFilePath(wchar_t (&buffer)[MAX_PATH], int siteNumber, DWORD dataType);
