// Data files as anybody may have left them.
#include "format/Catalogue.h"
#include "format/DataFileReader.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    for (const DWORD dataType : {catalogue::kInstantUsage, catalogue::kPeakDemand}) {
        const DataFile file = ParseDataFile({bytes, size}, dataType);
        const bool sound = file.fault == DataFileFault::kNone;
        if (file.reason.empty() != sound || file.records.size() != file.header.count ||
            (sound && size != sizeof(DataFileHeader) + file.records.size() * sizeof(_AmporaOneData))) {
            std::abort();
        }
    }
    return 0;
}
