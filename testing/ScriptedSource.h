// A source of figures that holds what a test gives it.
#pragma once

#include "server/FigureSource.h"

#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace testing_support {

// Figures and states by company and day, the same at every time. One thread at a time.
class CScriptedSource : public reportd::CFigureSource {
public:
    // name: what Name() says.
    explicit CScriptedSource(std::string name = "live") : m_name(std::move(name)) {}

    // Appends a record to the series of a day.
    void Add(int siteNumber, reportd::Series series, std::chrono::year_month_day date,
             const reportd::ReportRecord& record)
    {
        m_records[{siteNumber, series, date}].push_back(record);
    }

    // Makes these the records of a series and day, and the day's revision another one.
    void Set(int siteNumber, reportd::Series series, std::chrono::year_month_day date,
             const std::vector<reportd::ReportRecord>& records)
    {
        m_records[{siteNumber, series, date}] = records;
        ++m_states[{siteNumber, date}].revision;
    }

    void SetState(int siteNumber, std::chrono::year_month_day date, const reportd::DayState& state)
    {
        m_states[{siteNumber, date}] = state;
    }

    // The file of that day was published and observed then.
    void Observe(int siteNumber, std::chrono::year_month_day date, reportd::LocalTime published,
                 reportd::LocalTime observed)
    {
        m_states[{siteNumber, date}].published = published;
        m_states[{siteNumber, date}].observed = observed;
    }

    // Forgets all figures and states.
    void Clear()
    {
        m_records.clear();
        m_states.clear();
    }

    // From now on every look at a day throws std::runtime_error with these words, and the source is not ready.
    void Break(const std::string& why = "the source is broken")
    {
        m_isBroken = true;
        m_why = why;
    }
    void Repair() { m_isBroken = false; }

    // Calls of Read and State so far, and the days and moments that Read was asked for.
    int ReadCount() const { return m_readCount; }
    int StateCount() const { return m_stateCount; }
    using Asked = std::pair<std::chrono::year_month_day, std::optional<reportd::LocalTime>>;
    std::vector<Asked> TakeAsked() { return std::exchange(m_asked, {}); }

    std::string_view Name() const override { return m_name; }

    std::vector<reportd::ReportRecord> Read(int siteNumber, reportd::Series series, std::chrono::year_month_day date,
                                            reportd::LocalTime, std::optional<reportd::LocalTime> asOf) override
    {
        ThrowWhenBroken();
        ++m_readCount;
        m_asked.emplace_back(date, asOf);
        const auto found = m_records.find({siteNumber, series, date});
        return found == m_records.end() ? std::vector<reportd::ReportRecord>{} : found->second;
    }

    reportd::DayState State(int siteNumber, std::chrono::year_month_day date, reportd::LocalTime) override
    {
        ThrowWhenBroken();
        ++m_stateCount;
        const auto found = m_states.find({siteNumber, date});
        return found == m_states.end() ? reportd::DayState{} : found->second;
    }

    std::optional<reportd::LocalTime> Newest(int siteNumber, reportd::Series series) override
    {
        ThrowWhenBroken();
        std::optional<reportd::LocalTime> newest;
        for (const auto& [key, records] : m_records) {
            if (std::get<0>(key) == siteNumber && std::get<1>(key) == series && !records.empty()) {
                newest = std::max(newest, std::optional(records.back().start));
            }
        }
        return newest;
    }

    bool IsReady() override { return !m_isBroken; }

private:
    void ThrowWhenBroken() const
    {
        if (m_isBroken) {
            throw std::runtime_error(m_why);
        }
    }

    std::string m_name;
    bool m_isBroken = false;
    std::string m_why;
    int m_readCount = 0;
    int m_stateCount = 0;
    std::vector<Asked> m_asked;
    std::map<std::tuple<int, reportd::Series, std::chrono::year_month_day>, std::vector<reportd::ReportRecord>>
        m_records;
    std::map<std::pair<int, std::chrono::year_month_day>, reportd::DayState> m_states;
};

} // namespace testing_support
