#include "testing/simulation/Replies.h"

#include "testing/Reports.h"

#include <iterator>

namespace simulation {

using testing_support::ElementXml;
using testing_support::HttpFault;
using testing_support::PeakOf;
using testing_support::PeakXml;
using testing_support::UsageOf;
using testing_support::UsageXml;

namespace {

constexpr std::int64_t kSilenceLimitMs = 30'000; // after which the simulated machine's client gives up
constexpr std::int64_t kUsageSeconds = std::int64_t{6} * 3'600;
constexpr std::int64_t kUsagesPerDay = 4;

// A report of the day and its records.
struct DrawnReport {
    std::string xml;
    Records records;
};

std::string ReportOf(const TestKind& kind, const std::string& items)
{
    return ElementXml("power_report", ElementXml(kind.element, items));
}

DrawnReport DrawUsages(CGenerator& generator, const TestKind& kind, LocalMs day, const CZone& zone)
{
    Records records;
    std::string items;
    for (std::int64_t i = 0; i < kUsagesPerDay; ++i) {
        const LocalMs start = day + i * kUsageSeconds * kSecondMs;
        const UtcMs end = zone.ToUtc(start) + kUsageSeconds * kSecondMs;
        records.push_back({generator.Below(10'000'000), CalendarOf(start), CalendarOf(zone.ToLocal(end))});
        items += UsageXml(UsageOf(records.back(), kUsageSeconds));
    }
    return {ReportOf(kind, items), records};
}

DrawnReport DrawPeak(CGenerator& generator, const TestKind& kind, LocalMs day)
{
    const std::int64_t hour = generator.Between(0, 22);
    const Record record{generator.Below(10'000'000), CalendarOf(day + hour * kHourMs),
                        CalendarOf(day + (hour + 1) * kHourMs)};
    return {ReportOf(kind, PeakXml(kind.item, PeakOf(record))), {record}};
}

// Makes the answer one that gives no records.
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

// What may become of an answer, by a number below 1,000.
struct Trouble {
    bool Options::*isWanted;
    std::uint64_t from;
    std::uint64_t to;
    void (*draw)(CGenerator& generator, Reply& reply);
};
constexpr Trouble kTroubles[] = {{&Options::statuses, 0, 100, DrawStatus},
                                 {&Options::documents, 100, 160, DrawDocument},
                                 {&Options::bodies, 200, 250, DrawBody},
                                 {&Options::stalls, 300, 310, DrawStall}};

} // namespace

Reply DrawReply(CGenerator& generator, const Options& options, const TestKind& kind, const SYSTEMTIME& day,
                const CZone& zone)
{
    const LocalMs midnight = LocalOf({day.wYear, day.wMonth, 0, day.wDay, 0, 0, 0, 0});
    DrawnReport report =
        kind.isTrimmed ? DrawUsages(generator, kind, midnight, zone) : DrawPeak(generator, kind, midnight);
    Reply reply;
    reply.answer.body = std::move(report.xml);
    reply.records = std::move(report.records);
    if (options.latency) {
        // Often short, now and then longer than a stop waits.
        reply.answer.latencyMs = static_cast<DWORD>(generator.Below(generator.Chance(100) ? 4'000 : 60));
    }
    reply.lastsMs = reply.answer.latencyMs;
    const std::uint64_t fate = generator.Below(1'000);
    for (const Trouble& trouble : kTroubles) {
        if (options.*trouble.isWanted && fate >= trouble.from && fate < trouble.to) {
            trouble.draw(generator, reply);
        }
    }
    return reply;
}

} // namespace simulation
