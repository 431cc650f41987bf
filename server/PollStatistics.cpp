#include "server/PollStatistics.h"

namespace reportd {

void CPollStatistics::CountAttempt(int siteNumber)
{
    const std::scoped_lock lock(m_mutex);
    ++m_companies[siteNumber].attempts;
}

void CPollStatistics::CountFailure(int siteNumber, std::string_view reasonKey)
{
    const std::scoped_lock lock(m_mutex);
    ++m_companies[siteNumber].failures[std::string(reasonKey)];
}

void CPollStatistics::NoteSuccess(int siteNumber, LocalTime when, LocalTime published)
{
    const std::scoped_lock lock(m_mutex);
    Company& company = m_companies[siteNumber];
    company.lastSuccess = when;
    company.published = published;
}

void CPollStatistics::CountLayoutChange(int siteNumber)
{
    const std::scoped_lock lock(m_mutex);
    ++m_companies[siteNumber].layoutChanges;
}

CPollStatistics::Company CPollStatistics::Of(int siteNumber) const
{
    const std::scoped_lock lock(m_mutex);
    const auto found = m_companies.find(siteNumber);
    return found == m_companies.end() ? Company{} : found->second;
}

} // namespace reportd
