#include "server/Metrics.h"

#include "server/JapanTime.h"

namespace reportd {
namespace {

void PutHead(std::string& text, std::string_view name, std::string_view type, std::string_view help)
{
    text.append("# HELP ").append(name).append(" ").append(help);
    text.append("\n# TYPE ").append(name).append(" ").append(type).append("\n");
}

// A sample of one company; label: further ones, each with a comma before it. The values of labels are words of the
// program's own, which need no escapes.
void PutSample(std::string& text, std::string_view name, const catalogue::Company& company, std::string_view labels,
               std::uint64_t value)
{
    text.append(name).append("{company=\"").append(company.key.Narrow()).append("\"").append(labels);
    text.append("} ").append(std::to_string(value)).append("\n");
}

void PutMoment(std::string& text, std::string_view name, const catalogue::Company& company, std::string_view labels,
               std::optional<LocalTime> time)
{
    if (time) {
        PutSample(text, name, company, labels, static_cast<std::uint64_t>(MomentOf(*time).time_since_epoch().count()));
    }
}

// One metric with a sample for each company. put: adds the samples of a company.
template <typename Put>
void PutMetric(std::string& text, std::string_view name, std::string_view type, std::string_view help, Put put)
{
    PutHead(text, name, type, help);
    for (const catalogue::Company& company : catalogue::kCompanies) {
        put(name, company);
    }
}

void PutPolls(std::string& text, const CPollStatistics& statistics)
{
    PutMetric(text, "ampora_poll_attempts_total", "counter", "Polls that were begun.",
              [&](std::string_view name, const catalogue::Company& company) {
                  PutSample(text, name, company, "", statistics.Of(company.siteNumber).attempts);
              });
    PutMetric(text, "ampora_poll_failures_total", "counter", "Polls that brought no figures, by reason.",
              [&](std::string_view name, const catalogue::Company& company) {
                  for (const auto& [reason, count] : statistics.Of(company.siteNumber).failures) {
                      PutSample(text, name, company, ",reason=\"" + reason + "\"", count);
                  }
              });
    PutMetric(text, "ampora_last_success_timestamp_seconds", "gauge", "When a current file was last got.",
              [&](std::string_view name, const catalogue::Company& company) {
                  PutMoment(text, name, company, "", statistics.Of(company.siteNumber).lastSuccess);
              });
    PutMetric(text, "ampora_published_timestamp_seconds", "gauge", "The publisher's stamp of that file.",
              [&](std::string_view name, const catalogue::Company& company) {
                  PutMoment(text, name, company, "", statistics.Of(company.siteNumber).published);
              });
    PutMetric(text, "ampora_layout_changes_total", "counter", "Files with other headings than the file before.",
              [&](std::string_view name, const catalogue::Company& company) {
                  PutSample(text, name, company, "", statistics.Of(company.siteNumber).layoutChanges);
              });
}

} // namespace

std::string MetricsDocument(CFigureSource& source, const CPollStatistics* statistics)
{
    std::string text;
    PutHead(text, "ampora_build_info", "gauge", "The version of the program; always 1.");
    text += "ampora_build_info{version=\"" AMPORA_VERSION "\"} 1\n";
    if (statistics != nullptr) {
        PutPolls(text, *statistics);
    }
    PutMetric(text, "ampora_newest_record_timestamp_seconds", "gauge", "Start of the newest interval with a value.",
              [&](std::string_view name, const catalogue::Company& company) {
                  for (const SeriesInfo& info : kAllSeries) {
                      PutMoment(text, name, company, ",kind=\"" + std::string(info.key) + "\"",
                                source.Newest(company.siteNumber, info.series));
                  }
              });
    return text;
}

} // namespace reportd
