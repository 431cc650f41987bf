// Reads the data files back, for the programs that use them.
#pragma once

#include "format/DataFileFormat.h"

#include <span>
#include <vector>

// What is wrong with a data file.
enum class DataFileFault {
    kNone,
    kMissing,         // there is none
    kHeldByWriter,    // it is being written at this moment
    kUnreadable,      // the system cannot read it
    kTooShort,        // not even a whole header: the writer was interrupted, or it is something else
    kForeignVersion,  // another format
    kForeignDataType, // holds another kind of data than its name says
    kForeignReserved, // a header word that must be 0 is not
    kTorn,            // its length is not what its record count makes: the writer was interrupted
};

// One data file, or what is wrong with it.
struct DataFile {
    DataFileFault fault = DataFileFault::kNone;
    CString reason;                      // the fault in words, a clause without a full stop; empty without a fault
    DataFileHeader header = {};          // all zero with a fault
    std::vector<_AmporaOneData> records; // in the file's order; empty with a fault
};

// Most records and bytes that a data file may have: two days of the longest answers (8 MiB) with the shortest text for
// each record (32 bytes). A longer file counts as torn.
inline constexpr std::size_t kMaxDataFileRecords = 2 * 8 * 1024 * 1024 / 32;
inline constexpr std::size_t kMaxDataFileBytes = sizeof(DataFileHeader) + kMaxDataFileRecords * sizeof(_AmporaOneData);

// Parses the content of a data file. dataType: the data type code that it must hold. The times are not checked:
// they are what the report said. Throws std::bad_alloc only. Any thread.
DataFile ParseDataFile(std::span<const BYTE> bytes, DWORD dataType);

// For how long ReadDataFile tries again while a writer has the file open, in milliseconds. A writer takes moments.
inline constexpr DWORD kHeldLimitMs = 250;

// Reads the data file at this path. dataType: as above. While it is read, it cannot be opened for writing. While a
// writer has it open, this pauses and tries again, in all for kHeldLimitMs. Throws std::bad_alloc only. Any thread.
DataFile ReadDataFile(const CString& path, DWORD dataType);

// Whether one record's period starts before the other's. One whose start could not be computed is before all others.
bool StartsEarlier(const _AmporaOneData& left, const _AmporaOneData& right);
