// Data files as anybody may have left them, read by the programs' reader and through the library for other programs.
#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "format/DataFileReader.h"
#include "format/include/ampora.h"
#include "fuzz/Require.h"
#include "testing/ScratchFolder.h"

#include <cstring>
#include <memory>

namespace {

// The library gives a file exactly when the reader finds it sound, and gives what the reader found.
void CheckLibrary(std::span<const BYTE> bytes, DWORD dataType, const DataFile& expected)
{
    static const testing_support::CScratchFolder folder(testing_support::FolderInMemory());
    const std::string path = folder.Path().string();
    std::array<char, 1000> name = {};
    Require(ampora_path(path.c_str(), AMPORA_COMPANY_TOKYO, dataType, name.data(), name.size(), nullptr) == AMPORA_OK);
    folder.Write(std::filesystem::path(name.data()).filename().string(), std::string(bytes.begin(), bytes.end()));
    ampora_file* read = nullptr;
    const int32_t result = ampora_read(path.c_str(), AMPORA_COMPANY_TOKYO, dataType, &read);
    const std::unique_ptr<ampora_file, decltype(&ampora_file_free)> file(read, ampora_file_free);
    Require((result == AMPORA_OK) == (expected.fault == DataFileFault::kNone) && (result == AMPORA_OK) == bool(file));
    const uint32_t count = ampora_file_count(read);
    Require(count == (file ? expected.records.size() : 0));
    Require(count == 0 ||
            std::memcmp(ampora_file_records(read), expected.records.data(), count * sizeof(ampora_record)) == 0);
    const ampora_record* newest = ampora_file_newest(read);
    Require((newest == nullptr) == (count == 0));
    Require(newest == nullptr || (newest >= ampora_file_records(read) && newest < ampora_file_records(read) + count));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    for (const DWORD dataType : {catalogue::kInstantUsage, catalogue::kPeakDemand}) {
        const DataFile file = ParseDataFile({bytes, size}, dataType);
        const bool isSound = file.fault == DataFileFault::kNone;
        Require(file.reason.empty() == isSound && file.records.size() == file.header.count);
        Require(!isSound || size == sizeof(DataFileHeader) + file.records.size() * sizeof(_AmporaOneData));
        CheckLibrary({bytes, size}, dataType, file);
    }
    return 0;
}
