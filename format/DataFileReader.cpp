#include "format/DataFileReader.h"

#include "platform/Files.h"
#include "platform/Pause.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace {

// The longest pause before another try to read a file that is being written.
constexpr DWORD kLongestPauseMs = 32;

DataFile Faulty(DataFileFault fault, CString reason)
{
    DataFile file;
    file.fault = fault;
    file.reason = std::move(reason);
    return file;
}

DataFile FaultOfRead(DWORD error)
{
    switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
        return Faulty(DataFileFault::kMissing, L"there is no such file");
    case ERROR_SHARING_VIOLATION:
        return Faulty(DataFileFault::kHeldByWriter, L"it is being written by another program");
    default:
        return Faulty(DataFileFault::kUnreadable, platform::FormatText(L"it cannot be read (error %u)", error));
    }
}

// The header, or its first fault.
DataFile CheckedHeader(const DataFileHeader& header, std::size_t length, DWORD dataType)
{
    if (header.version != kDataFileVersion) {
        return Faulty(DataFileFault::kForeignVersion, platform::FormatText(L"its format version is 0x%08X, not 0x%08X",
                                                                           header.version, kDataFileVersion));
    }
    if (header.dataType != dataType) {
        return Faulty(DataFileFault::kForeignDataType,
                      platform::FormatText(L"it holds data type %u, not %u", header.dataType, dataType));
    }
    if (header.reserved != 0) {
        return Faulty(DataFileFault::kForeignReserved,
                      platform::FormatText(L"its reserved word is 0x%08X, not 0", header.reserved));
    }
    const ULONGLONG announced = sizeof(header) + ULONGLONG{header.count} * sizeof(_AmporaOneData);
    if (announced != length) {
        return Faulty(DataFileFault::kTorn,
                      platform::FormatText(L"it has %u bytes, but its record count of %u makes %u", length,
                                           header.count, announced));
    }
    DataFile file;
    file.header = header;
    return file;
}

DataFile ReadOnce(const CString& path, DWORD dataType)
{
    // One byte more than allowed: the rest of a longer file shows as a length that no count of records has.
    std::vector<BYTE> bytes;
    const DWORD error = platform::ReadWholeFile(path, kMaxDataFileBytes + 1, &bytes);
    return error == ERROR_SUCCESS ? ParseDataFile(bytes, dataType) : FaultOfRead(error);
}

} // namespace

DataFile ParseDataFile(std::span<const BYTE> bytes, DWORD dataType)
{
    DataFileHeader header{};
    if (bytes.size() < sizeof(header)) {
        return Faulty(DataFileFault::kTooShort, platform::FormatText(L"it has %u bytes, less than a header (%u bytes)",
                                                                     bytes.size(), sizeof(header)));
    }
    std::memcpy(&header, bytes.data(), sizeof(header));
    DataFile file = CheckedHeader(header, bytes.size(), dataType);
    if (file.fault == DataFileFault::kNone && header.count != 0) {
        file.records.resize(header.count);
        std::memcpy(file.records.data(), bytes.data() + sizeof(header), bytes.size() - sizeof(header));
    }
    return file;
}

DataFile ReadDataFile(const CString& path, DWORD dataType)
{
    DataFile file = ReadOnce(path, dataType);
    DWORD pausedMs = 0;
    for (DWORD pauseMs = 1; file.fault == DataFileFault::kHeldByWriter && pausedMs < kHeldLimitMs; pauseMs *= 2) {
        pauseMs = std::min({pauseMs, kLongestPauseMs, kHeldLimitMs - pausedMs});
        platform::Pause(pauseMs);
        pausedMs += pauseMs;
        file = ReadOnce(path, dataType);
    }
    return file;
}

bool StartsEarlier(const _AmporaOneData& left, const _AmporaOneData& right)
{
    const auto key = [](const SYSTEMTIME& time) {
        return std::tie(time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
    };
    return key(left.stStart) < key(right.stStart);
}
