// The data file, byte for byte: a header and then the records, back to back, little-endian. docs/data-format.md shows
// it with an example.
#pragma once

#include "platform/Types.h"

#include <bit>

// One forecast record. Times are local wall-clock times as the report gives them, unchanged by any zone; an all-zero
// time means that none could be computed.
struct _AmporaOneData { // NOLINT(bugprone-reserved-identifier): its name throughout the suite
    ULONGLONG ullValue; // usage, supply or demand in the unit of the report
    SYSTEMTIME stStart; // start of the interval that the value covers
    SYSTEMTIME stEnd;   // its end
};
static_assert(sizeof(_AmporaOneData) == 40 && offsetof(_AmporaOneData, stStart) == 8 &&
              offsetof(_AmporaOneData, stEnd) == 24);

struct DataFileHeader {
    DWORD version;        // kDataFileVersion
    DWORD dataType;       // data type code (Catalogue.h)
    DWORD count;          // number of records that follow
    DWORD reserved;       // 0
    SYSTEMTIME writeTime; // local clock just before the file was written
};
static_assert(sizeof(DataFileHeader) == 32 && offsetof(DataFileHeader, dataType) == 4 &&
              offsetof(DataFileHeader, count) == 8 && offsetof(DataFileHeader, writeTime) == 16);

// Structures are written as they lie in memory.
static_assert(std::endian::native == std::endian::little);

inline constexpr DWORD kDataFileVersion = 0x00010000;
