// Report texts as they come from the network.
#include "data/CalendarTime.h"
#include "data/GSXMLAnalyzer.h"
#include "platform/Apartment.h"
#include "platform/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    static const bool entered = [] {
        platform::EnterApartment();
        return true;
    }();
    static_cast<void>(entered);
    CGSXMLAnalyzer analyzer;
    try {
        static_cast<CAmporaAnalyzer&>(analyzer).AnalyzeData(
            platform::DecodeUtf8({reinterpret_cast<const char*>(bytes), size}));
    } catch (const COleException&) { // NOLINT(bugprone-empty-catch): an impossible date, as its contract says
    }
    return 0;
}
