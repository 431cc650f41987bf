// Where the data files are.
#pragma once

#include "platform/Types.h"

// The folder of the data files, below the common application-data folder; empty when that is unknown. Creates nothing
// itself; the system may create the common folder. Any thread.
CString DataFolder();

// The path of a company's data file of one kind in a folder: "folder\key_TTTTTTTT.dat", T the data type code in
// upper-case hexadecimal, of any length. folder: without a separator at its end. dataType: data type code. Empty for a
// site number without a company. Any thread.
CString DataFileIn(const CString& folder, int siteNumber, DWORD dataType);

// Copies a path into a buffer, cut to it. buffer: zero-terminated. Any thread.
void CutPath(const CString& path, wchar_t (&buffer)[MAX_PATH]);

// The path of a company's data file of one kind in DataFolder, cut to the buffer. buffer: zero-terminated on success.
// dataType: data type code. When the common folder is unknown the folder part is empty.
// False with last error 50 and the buffer untouched when the site number has no company. Any thread.
bool GetFilePath(wchar_t (&buffer)[MAX_PATH], int siteNumber, DWORD dataType);
