// Writes data files as AmporaSrv does, again and again, until its standard input ends: library_writer FOLDER
//
// Generation G has G % kGenerationSizes records, each with the value G. Prints "ready" after the first one and at the
// end how many it wrote and how often the file was held by readers.
#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "format/DataFileReader.h"
#include "platform/Files.h"
#include "platform/Pause.h"
#include "platform/Text.h"
#include "testing/library/Generation.h"

#include <atomic>
#include <iostream>
#include <thread>

namespace {

bool WriteGeneration(const CString& path, ULONGLONG generation)
{
    const platform::SecurityDescriptorPtr security = platform::InitializeDescriptor();
    const platform::OutputFilePtr file = platform::OpenForReplace(path, security.get());
    if (!file) {
        return false;
    }
    const auto count = static_cast<DWORD>(generation % testing_support::kGenerationSizes);
    const DataFileHeader header{kDataFileVersion, catalogue::kActualUsage, count, 0, {}};
    platform::WriteFileBytes(file, &header, sizeof(header));
    for (DWORD i = 0; i < count; ++i) {
        const _AmporaOneData record{generation, {}, {}};
        platform::WriteFileBytes(file, &record, sizeof(record));
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        return 2;
    }
    const CString path = DataFileIn(platform::DecodeUtf8(argv[1]), catalogue::kTokyo, catalogue::kActualUsage);
    std::atomic<bool> isToEnd = false;
    std::thread input([&] {
        for (std::string line; std::getline(std::cin, line);) {
        }
        isToEnd = true;
    });
    ULONGLONG written = 0;
    ULONGLONG refused = 0;
    while (!isToEnd) {
        if (!WriteGeneration(path, written)) {
            ++refused;
        } else if (++written == 1) {
            std::cout << "ready" << std::endl;
        }
        platform::Pause(1);
    }
    input.join();
    std::cout << written << " " << refused << std::endl;
}
