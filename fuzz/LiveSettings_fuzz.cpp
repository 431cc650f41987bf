// Settings files of ampora-reportd as an administrator may have written them.
#include "fuzz/Require.h"
#include "server/live/LiveSettings.h"

#include <algorithm>

namespace {

bool IsPrintable(unsigned char character) { return character >= 0x20 && character != 0x7F; }

void CheckAccepted(const reportd::LiveSettings& settings)
{
    Require(settings.companies.size() == catalogue::kCompanies.size());
    Require(settings.staleAfter <= settings.noneAfter && settings.staleAfter.count() > 0);
    for (const auto& [siteNumber, company] : settings.companies) {
        Require(company.interval.count() >= 5 && company.politeSecond.count() >= 0 &&
                company.politeSecond.count() < 300);
        Require(company.todayUrl.starts_with("http://") || company.todayUrl.starts_with("https://"));
        Require(!company.agent.empty() && std::all_of(company.agent.begin(), company.agent.end(), IsPrintable));
        Require(company.FrozenAfter().count() > 0);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    try {
        CheckAccepted(reportd::ParseLiveSettings(std::string(bytes, bytes + size), "file"));
    } catch (const reportd::CSettingsError& error) {
        const std::string what = error.what();
        Require(what.starts_with("file:") && std::all_of(what.begin(), what.end(), IsPrintable));
    }
    return 0;
}
