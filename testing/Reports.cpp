#include "testing/Reports.h"

#include <cstdio>

namespace testing_support {

namespace {

std::string Attribute(const std::string& name, const std::string& value) { return " " + name + "=\"" + value + "\""; }

// Ten entities, each ten times the one before: a thousand million characters when expanded.
std::string EntityBomb()
{
    std::string entities = "<!ENTITY a0 \"9\">";
    for (int i = 1; i < 10; ++i) {
        std::string content;
        for (int repeat = 0; repeat < 10; ++repeat) {
            content += "&a" + std::to_string(i - 1) + ";";
        }
        entities.append("<!ENTITY a").append(std::to_string(i)).append(" \"").append(content).append("\">");
    }
    return "<?xml version=\"1.0\"?><!DOCTYPE power_report [" + entities + "]><power_report>&a9;</power_report>";
}

} // namespace

UsageRow UsageOf(const Record& record, std::int64_t seconds)
{
    return {DateTimeText(record.start), std::to_string(seconds), std::to_string(record.value)};
}

PeakRow PeakOf(const Record& record)
{
    return {DateTimeText(record.start), DateTimeText(record.end), std::to_string(record.value)};
}

std::string UsageXml(const UsageRow& row)
{
    return "<usage" + Attribute("datetime", row.datetime) + Attribute("duration", row.duration) + ">" + row.value +
           "</usage>";
}

std::string PeakXml(const std::string& tagName, const PeakRow& row)
{
    return "<" + tagName + Attribute("start", row.start) + Attribute("end", row.end) + ">" + row.value + "</" +
           tagName + ">";
}

std::string ElementXml(const std::string& tagName, const std::string& content)
{
    return "<" + tagName + ">" + content + "</" + tagName + ">";
}

std::string Report(const std::string& content)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + ElementXml("power_report", content) + "\n";
}

std::string UsageReport(unsigned dataType, const std::vector<UsageRow>& usages)
{
    std::string content;
    for (const UsageRow& usage : usages) {
        content += "\n    " + UsageXml(usage);
    }
    return Report("\n  " + ElementXml(KindOf(dataType).element, content + "\n  ") + "\n");
}

std::string PeakReport(unsigned dataType, const PeakRow& peak)
{
    const std::string child = PeakXml(KindOf(dataType).item, peak);
    return Report("\n  " + ElementXml(KindOf(dataType).element, "\n    " + child + "\n  ") + "\n");
}

std::vector<UsageRow> UsagesOfDay(const std::string& date, int count, int stepSeconds)
{
    constexpr int kDaySeconds = 24 * 60 * 60;
    std::vector<UsageRow> rows;
    for (int i = 0; i < count; ++i) {
        const int second = static_cast<int>(static_cast<long long>(i) * stepSeconds % kDaySeconds);
        char time[32] = {};
        std::snprintf(time, sizeof(time), "T%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
        rows.push_back({date + time, std::to_string(stepSeconds), std::to_string(i + 1)});
    }
    return rows;
}

std::ostream& operator<<(std::ostream& stream, const NamedReport& report) { return stream << report.name; }

std::vector<NamedReport> UnloadableReports()
{
    const std::string whole = UsageReport(1, UsagesOfDay("2012-07-02", 3, 300));
    return {
        {"Empty", ""},
        {"Blank", " \r\n\t"},
        {"NoXml", "Service Unavailable"},
        {"Truncated", whole.substr(0, whole.size() / 2)},
        {"UnclosedRoot", "<power_report>"},
        {"MismatchedTags", "<power_report><instant_usage></power_report></instant_usage>"},
        {"TwoRoots", "<power_report/><power_report/>"},
        {"JunkAfterTheEnd", "<power_report/>junk"},
        {"UnquotedAttribute", "<power_report><instant_usage a=1/></power_report>"},
        {"RepeatedAttribute", "<power_report><instant_usage a=\"1\" a=\"2\"/></power_report>"},
        {"UndefinedEntity", "<power_report>&nothing;</power_report>"},
        {"BareAmpersand", "<power_report>a & b</power_report>"},
        {"ControlCharacter", "<power_report>\x01</power_report>"},
        {"EntityBomb", EntityBomb()},
    };
}

} // namespace testing_support
