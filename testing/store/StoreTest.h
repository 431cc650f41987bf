// A store on a disk of the test's own, and figures for it.
#pragma once

#include "server/store/Database.h"
#include "server/store/FigureStore.h"
#include "testing/ScratchFolder.h"

#include <gmock/gmock.h>

namespace reportd {

inline constexpr int kSite = 3;
inline constexpr std::chrono::year_month_day kDate{std::chrono::year{2026}, std::chrono::April, std::chrono::day{20}};
inline constexpr std::chrono::local_days kDay{kDate};
inline constexpr std::chrono::year_month_day kNextDate{kDay + std::chrono::days{1}};

// A time of that day.
constexpr LocalTime At(int hour, int minute, int second = 0)
{
    return kDay + std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second);
}

// The figure of a series for the interval that starts then.
constexpr Figure MakeFigure(Series series, LocalTime start, std::uint64_t value)
{
    return {series, {start, start + InfoOf(series).length, value}};
}

inline std::vector<std::uint64_t> ValuesOf(const std::vector<ReportRecord>& records)
{
    std::vector<std::uint64_t> values;
    values.reserve(records.size());
    for (const ReportRecord& record : records) {
        values.push_back(record.value);
    }
    return values;
}

// Collects the messages that a store reports.
class CTold {
public:
    std::function<void(const std::string&)> Function()
    {
        return [this](const std::string& text) { m_texts.push_back(text); };
    }
    const std::vector<std::string>& Texts() const { return m_texts; }

private:
    std::vector<std::string> m_texts;
};

// Whether a database is as it should be in each page and index.
inline bool IsSound(const std::filesystem::path& file)
{
    CDatabase database(file, true);
    CStatement check(database.Handle(), "PRAGMA integrity_check");
    CRun run(check);
    return run.Next() && run.Text(0) == "ok";
}

class StoreTest : public testing::Test {
protected:
    std::filesystem::path File() const { return m_folder.Path() / "figures.sqlite"; }

    std::unique_ptr<CFigureStore> OpenStore(CFigureStore::Access access = CFigureStore::Access::kReadWrite)
    {
        return std::make_unique<CFigureStore>(File(), access, m_told.Function());
    }

    // The names of the files in the store's folder.
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    testing_support::CScratchFolder m_folder;
    CTold m_told;
};

} // namespace reportd
