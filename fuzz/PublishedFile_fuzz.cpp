// Files of the companies as they or somebody in between may have made them.
#include "fuzz/Require.h"
#include "server/published/PublishedFile.h"

#include <algorithm>

namespace {

// What every file that is accepted keeps to, whatever it holds.
void CheckFile(const reportd::PublishedFile& file)
{
    using namespace reportd;
    using std::chrono::days;
    using std::chrono::local_days;
    Require(file.date.ok());
    const Figure* previous = nullptr;
    for (const Figure& figure : file.figures) {
        const SeriesInfo& info = InfoOf(figure.series);
        const LocalTime midnight{local_days{file.date}};
        Require(figure.record.end - figure.record.start == info.length);
        Require(figure.record.start >= midnight && figure.record.end <= midnight + days{info.isPeak ? 2 : 1});
        Require(figure.record.value <= 100000);
        Require(figure.record.value > 0 || figure.series == Series::kSolar || figure.series == Series::kWind);
        Require(previous == nullptr || previous->series < figure.series ||
                (previous->series == figure.series && previous->record.start < figure.record.start));
        previous = &figure;
    }
    Require(file.unknown.size() <= file.headings.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    static const reportd::ExtraHeadings kExtra{
        {{reportd::Series::kWind, {"w"}}, {reportd::Series::kPeakDemand, {"p"}}}};
    try {
        CheckFile(reportd::ParsePublishedFile({reinterpret_cast<const char*>(bytes), size}, kExtra));
    } catch (const reportd::CRefusedFile& refused) {
        const std::string_view why = refused.what();
        Require(!why.empty() && why.size() < 300);
        Require(std::none_of(why.begin(), why.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }));
        Require(!reportd::KeyOf(refused.Reason()).empty());
    }
    return 0;
}
