#include "server/store/StoreSource.h"

namespace reportd {

CStoreSource::CStoreSource(const std::filesystem::path& file) : m_store(file, CFigureStore::Access::kReadOnly, {}) {}

std::vector<ReportRecord> CStoreSource::Read(int siteNumber, Series series, std::chrono::year_month_day date,
                                             LocalTime /*now*/, std::optional<LocalTime> asOf)
{
    return m_store.Read(siteNumber, series, date, asOf);
}

DayState CStoreSource::State(int siteNumber, std::chrono::year_month_day date, LocalTime /*now*/)
{
    return m_store.State(siteNumber, date);
}

std::optional<LocalTime> CStoreSource::Newest(int siteNumber, Series series)
{
    return m_store.Newest(siteNumber, series);
}

bool CStoreSource::IsReady() { return m_store.IsReady(); }

} // namespace reportd
