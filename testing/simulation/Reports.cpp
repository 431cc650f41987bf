#include "testing/simulation/Reports.h"

#include <array>
#include <cstdio>
#include <iterator>

namespace simulation {

using testing_support::HttpFault;

namespace {

constexpr std::int64_t kSilenceLimitMs = 30'000; // after which the simulated machine's client gives up
constexpr std::int64_t kUsageSeconds = std::int64_t{6} * 3'600;
constexpr std::int64_t kUsagesPerDay = 4;

template <class... Numbers>
std::string Formatted(const char* format, Numbers... numbers)
{
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), format, numbers...);
    return text.data();
}

std::string DateTimeOf(const SYSTEMTIME& time)
{
    return Formatted("%04d-%02d-%02dT%02d:%02d:%02d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute,
                     time.wSecond);
}

// A report of the day and its records.
struct Report {
    std::string xml;
    Records records;
};

Report UsageReport(CGenerator& generator, const Kind& kind, LocalMs day, const CZone& zone)
{
    const std::string tag = std::string(kind.word) + "_usage";
    Report report;
    for (std::int64_t i = 0; i < kUsagesPerDay; ++i) {
        const LocalMs start = day + i * kUsageSeconds * kSecondMs;
        const UtcMs end = zone.ToUtc(start) + kUsageSeconds * kSecondMs;
        const Record record{generator.Below(10'000'000), CalendarOf(start), CalendarOf(zone.ToLocal(end))};
        report.xml += "<usage datetime=\"" + DateTimeOf(record.start) + "\" duration=\"" +
                      std::to_string(kUsageSeconds) + "\">" + std::to_string(record.value) + "</usage>";
        report.records.push_back(record);
    }
    report.xml = "<power_report><" + tag + ">" + report.xml + "</" + tag + "></power_report>";
    return report;
}

Report PeakReport(CGenerator& generator, const Kind& kind, LocalMs day)
{
    const std::string tag = std::string("peak_") + kind.word;
    const std::int64_t hour = generator.Between(0, 22);
    const Record record{generator.Below(10'000'000), CalendarOf(day + hour * kHourMs),
                        CalendarOf(day + (hour + 1) * kHourMs)};
    return {"<power_report><" + tag + "><" + kind.word + " start=\"" + DateTimeOf(record.start) + "\" end=\"" +
                DateTimeOf(record.end) + "\">" + std::to_string(record.value) + "</" + kind.word + "></" + tag +
                "></power_report>",
            {record}};
}

// An answer of which nothing comes to use.
void Spoil(Reply& reply, HttpFault fault, const char* name)
{
    reply.answer.fault = fault;
    reply.records.reset();
    reply.name = name;
}

void DrawStatus(CGenerator& generator, Reply& reply)
{
    constexpr DWORD kStatuses[] = {503, 404, 500};
    constexpr const char* kNames[] = {"503", "404", "500"};
    const std::uint64_t drawn = generator.Below(std::size(kStatuses));
    reply.answer.status = kStatuses[drawn];
    reply.answer.body = generator.Chance(500) ? "" : "not to be read";
    reply.name = kNames[drawn];
    // No data for the day is an answer, the others are none.
    reply.records = drawn == 0 ? std::optional(Records()) : std::nullopt;
}

void DrawDocument(CGenerator& generator, Reply& reply)
{
    std::string& body = reply.answer.body;
    switch (generator.Below(6)) {
    case 0:
        Spoil(reply, HttpFault::kNone, "cut document");
        body.resize(body.size() * 2 / 3);
        break;
    case 1:
        Spoil(reply, HttpFault::kNone, "empty body");
        body.clear();
        break;
    case 2:
        Spoil(reply, HttpFault::kNone, "other document");
        body = "<html><body>busy</body></html>";
        break;
    case 3:
        Spoil(reply, HttpFault::kNone, "childless report");
        body = "<power_report/>";
        break;
    case 4:
        reply.name = "unknown content";
        body = "<power_report><weather/></power_report>";
        reply.records = Records();
        break;
    default:
        reply.name = "report with unknown content";
        body.insert(body.find('>') + 1, "<weather/>");
        break;
    }
}

void DrawBody(CGenerator& generator, Reply& reply)
{
    constexpr HttpFault kFaults[] = {HttpFault::kShortBody, HttpFault::kReset, HttpFault::kClosedEarly,
                                     HttpFault::kGarbage, HttpFault::kRefused};
    constexpr const char* kNames[] = {"short body", "reset", "closed early", "garbage", "refused"};
    const std::uint64_t drawn = generator.Below(std::size(kFaults));
    Spoil(reply, kFaults[drawn], kNames[drawn]);
}

void DrawStall(CGenerator& generator, Reply& reply)
{
    if (generator.Chance(500)) {
        Spoil(reply, HttpFault::kStalled, "stalled");
        reply.lastsMs = kSilenceLimitMs;
    } else {
        Spoil(reply, HttpFault::kStalledBody, "stalled body");
        reply.lastsMs = reply.answer.latencyMs + kSilenceLimitMs;
    }
}

} // namespace

std::string TargetOf(const Company& company, const Kind& kind, const SYSTEMTIME& day)
{
    return std::string("/") + kind.category + "/" + company.word + "/" + kind.word +
           Formatted("?date=%04d-%02d-%02d&output=xml", day.wYear, day.wMonth, day.wDay);
}

Reply DrawReply(CGenerator& generator, const Options& options, const Kind& kind, const SYSTEMTIME& day,
                const CZone& zone)
{
    const LocalMs midnight = LocalOf({day.wYear, day.wMonth, 0, day.wDay, 0, 0, 0, 0});
    Report report =
        kind.isTrimmed ? UsageReport(generator, kind, midnight, zone) : PeakReport(generator, kind, midnight);
    Reply reply;
    reply.answer.body = std::move(report.xml);
    reply.records = std::move(report.records);
    if (options.latency) {
        // Often short, now and then longer than a stop waits.
        reply.answer.latencyMs = static_cast<DWORD>(generator.Below(generator.Chance(100) ? 4'000 : 60));
    }
    reply.lastsMs = reply.answer.latencyMs;
    const std::uint64_t fate = generator.Below(1'000);
    if (options.statuses && fate < 100) {
        DrawStatus(generator, reply);
    } else if (options.documents && fate >= 100 && fate < 160) {
        DrawDocument(generator, reply);
    } else if (options.bodies && fate >= 200 && fate < 250) {
        DrawBody(generator, reply);
    } else if (options.stalls && fate >= 300 && fate < 310) {
        DrawStall(generator, reply);
    }
    return reply;
}

} // namespace simulation
