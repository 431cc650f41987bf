#include "server/ReportDocument.h"

#include "server/TimeText.h"

namespace reportd {
namespace {

void PutRecord(std::string& text, const catalogue::Kind& kind, const ReportRecord& record)
{
    text.append("    <").append(kind.item.Narrow());
    if (kind.category.Narrow() == "usage") {
        text += " datetime=\"";
        PutTime(text, record.start);
        text += "\" duration=\"";
        text += std::to_string((record.end - record.start).count());
    } else {
        text += " start=\"";
        PutTime(text, record.start);
        text += "\" end=\"";
        PutTime(text, record.end);
    }
    text.append("\">").append(std::to_string(record.value)).append("</").append(kind.item.Narrow()).append(">\n");
}

} // namespace

const catalogue::Kind* FindReportKind(std::string_view category, std::string_view word)
{
    const auto* const found =
        std::find_if(catalogue::kKinds.begin(), catalogue::kKinds.end(), [&](const catalogue::Kind& kind) {
            return kind.category.Narrow() == category && kind.word.Narrow() == word;
        });
    return found == catalogue::kKinds.end() ? nullptr : found;
}

std::string ReportDocument(const catalogue::Kind& kind, const std::vector<ReportRecord>& records)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<power_report>\n  <";
    text.append(kind.element.Narrow()).append(">\n");
    for (const ReportRecord& record : records) {
        PutRecord(text, kind, record);
    }
    return text.append("  </").append(kind.element.Narrow()).append(">\n</power_report>\n");
}

} // namespace reportd
