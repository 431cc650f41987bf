// A source of figures that holds what a test gives it.
#pragma once

#include "server/FigureSource.h"

#include <map>
#include <stdexcept>
#include <string>
#include <tuple>

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

    void SetState(int siteNumber, std::chrono::year_month_day date, const reportd::DayState& state)
    {
        m_states[{siteNumber, date}] = state;
    }

    // From now on every look at a day throws std::runtime_error, and the source is not ready.
    void Break() { m_isBroken = true; }

    std::string_view Name() const override { return m_name; }

    std::vector<reportd::ReportRecord> Read(int siteNumber, reportd::Series series, std::chrono::year_month_day date,
                                            reportd::LocalTime, std::optional<reportd::LocalTime>) override
    {
        ThrowWhenBroken();
        const auto found = m_records.find({siteNumber, series, date});
        return found == m_records.end() ? std::vector<reportd::ReportRecord>{} : found->second;
    }

    reportd::DayState State(int siteNumber, std::chrono::year_month_day date, reportd::LocalTime) override
    {
        ThrowWhenBroken();
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
            throw std::runtime_error("the source is broken");
        }
    }

    std::string m_name;
    bool m_isBroken = false;
    std::map<std::tuple<int, reportd::Series, std::chrono::year_month_day>, std::vector<reportd::ReportRecord>>
        m_records;
    std::map<std::pair<int, std::chrono::year_month_day>, reportd::DayState> m_states;
};

} // namespace testing_support
