// Measures what a pass does for each report. On the native platform, without the network.
#include "config/TraceLog.h"
#include "data/GSXMLAnalyzer.h"
#include "fetch/AmporaHttpClient.h"
#include "fetch/AmporaPowerCompanies.h"
#include "format/Catalogue.h"
#include "platform/Apartment.h"
#include "platform/Clock.h"
#include "platform/Text.h"
#include "testing/Reports.h"
#include "testing/ScratchFolder.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

namespace {

// One usage every 5 minutes of a day; and a report that nobody should ever send.
constexpr int kDayUsages = 288;
constexpr int kHugeUsages = 100000;

std::string InstantReport(std::int64_t usages)
{
    constexpr int kStepSeconds = 300;
    return testing_support::UsageReport(
        catalogue::kInstantUsage, testing_support::UsagesOfDay("2012-07-02", static_cast<int>(usages), kStepSeconds));
}

// Reports of some 2 KB to 2 MB, and one that is almost as long as the limit.
void AddReportSizes(benchmark::internal::Benchmark* benchmark)
{
    constexpr int kLongestUsages = 118000;
    for (const int usages : {24, kDayUsages, 2880, 28800, kLongestUsages}) {
        benchmark->Arg(usages);
    }
    benchmark->Unit(benchmark::kMicrosecond);
}

void AnalyzeReport(benchmark::State& state)
{
    g_dwLogLevel = 0;
    platform::EnterApartment();
    {
        const std::string report = InstantReport(state.range(0));
        const CString text = platform::DecodeUtf8(report);
        CGSXMLAnalyzer analyzer;
        analyzer.Initialize();
        while (state.KeepRunning()) {
            const auto records = static_cast<CAmporaAnalyzer&>(analyzer).AnalyzeData(text);
            if (report.size() > kMaxBodyBytes || !records ||
                records->Records().size() != static_cast<std::size_t>(state.range(0))) {
                state.SkipWithError("not every usage became a record");
            }
        }
        analyzer.Finalize();
        state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(report.size()));
    }
    platform::LeaveApartment();
}
BENCHMARK(AnalyzeReport)->Apply(AddReportSizes);

// The least that an analysis of the same text can do.
void BareParse(benchmark::State& state)
{
    const std::string report = InstantReport(state.range(0));
    while (state.KeepRunning()) {
        xmlDoc* const document = xmlReadMemory(report.data(), static_cast<int>(report.size()), "", nullptr, 0);
        if (document == nullptr) {
            state.SkipWithError("the report was not parsed");
        }
        xmlFreeDoc(document);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(report.size()));
}
BENCHMARK(BareParse)->Apply(AddReportSizes);

void SwitchedOffTraceLine(benchmark::State& state)
{
    constexpr int kBatch = 1000;
    g_dwLogLevel = 0;
    const CTraceLog log(L"CAmporaUpdater::ThreadProc");
    while (state.KeepRunningBatch(kBatch)) {
        for (int minutes = 0; minutes < kBatch; ++minutes) {
            log.Tra(L"Set Interval:%dmin", minutes);
            benchmark::ClobberMemory(); // so that each line looks at the level
        }
    }
}
BENCHMARK(SwitchedOffTraceLine);

void WriteDataFile(benchmark::State& state)
{
    const testing_support::CScratchFolder scratch;
    const CString path = platform::DecodeUtf8((scratch.Path() / "tokyo_00000001.dat").string());
    CAmporaTokyoPowerCompany site;
    CAmporaDataCollection records;
    SYSTEMTIME now{};
    platform::ReadLocalClock(&now);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        records.AddAmporaData(now, now, static_cast<ULONGLONG>(i));
    }
    while (state.KeepRunning()) {
        site.OutData(path, catalogue::kInstantUsage, &records, now);
    }
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(scratch.Path() / "tokyo_00000001.dat"));
    if (size != 32 + 40 * state.range(0)) {
        state.SkipWithError("the file has another length");
    }
    state.SetBytesProcessed(state.iterations() * size);
}
BENCHMARK(WriteDataFile)->Arg(kDayUsages)->Arg(kHugeUsages)->Unit(benchmark::kMicrosecond);

void DecodeBody(benchmark::State& state)
{
    const std::string report = InstantReport(state.range(0));
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(CAmporaHttpClient::ConvertFromUtf8(report.c_str(), report.size() + 1));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(report.size()));
}
BENCHMARK(DecodeBody)->Arg(kDayUsages)->Arg(kHugeUsages)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
