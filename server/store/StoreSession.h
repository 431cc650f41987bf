// An open store: its tables and the statements that work on them.
#pragma once

#include "server/FigureSource.h"
#include "server/JapanTime.h"
#include "server/store/DayFigures.h"
#include "server/store/PollState.h"
#include "server/store/Schema.h"

namespace reportd {

// A moment as the database has it, in Unix seconds.
inline std::int64_t SecondsOf(LocalTime time) { return MomentOf(time).time_since_epoch().count(); }

// The operations of CFigureStore on one connection; see there. Each throws CSqlError when SQLite refuses something.
// CFigureStore decides what follows from that. One thread at a time.
class CStoreSession {
public:
    // Opens the file, whose folder must exist, for writing or for reading only, as PrepareForWriting and
    // PrepareForReading do.
    CStoreSession(const std::filesystem::path& file, bool mayWrite);

    std::size_t Append(int siteNumber, std::chrono::local_days fileDay, const std::vector<Figure>& figures,
                       const FigureStamp& stamp);
    void NoteCurrent(int siteNumber, std::chrono::local_days fileDay, std::int64_t observed);
    // until: only what had been observed by then, in Unix seconds.
    std::vector<ReportRecord> Read(int siteNumber, Series series, std::chrono::local_days day, std::int64_t until);
    DayState State(int siteNumber, std::chrono::local_days day);
    // The newest day that has a value of the series.
    std::optional<std::chrono::local_days> NewestDay(int siteNumber, Series series);
    PollState LoadPollState(int siteNumber);
    void SavePollState(int siteNumber, const PollState& state);
    // Deletes some of the days before this one. Whether there may be more of them.
    bool TrimSome(std::chrono::local_days firstKept);
    // Reads from the file.
    void Touch();

    // Whether the file was deleted or renamed since it was opened.
    bool HasMoved() const noexcept { return m_database.HasMoved(); }
    // Closing is to leave the file and its write-ahead log as they are.
    void KeepAsItIs() noexcept { m_database.KeepAsItIs(); }

private:
    struct Day;

    void AppendDay(int siteNumber, std::chrono::local_days day, std::chrono::local_days fileDay,
                   const std::vector<Figure>& figures, const FigureStamp& stamp, std::size_t& count);
    std::optional<Day> FindDay(int siteNumber, std::int64_t day);
    void Know(int siteNumber, std::int64_t day, CDayFigures& figures);
    void WriteRow(int siteNumber, std::int64_t day, const FigureRow& row);
    CStatement Prepare(const std::string& sql) { return {m_database.Handle(), sql}; }

    CDatabase m_database; // goes after the statements
    CStatement m_findDay;
    CStatement m_writeDay;
    CStatement m_noteCurrent;
    CStatement m_newestDay;
    CStatement m_loadPollState;
    CStatement m_savePollState;
    CStatement m_trim;
    std::vector<CStatement> m_readDay;    // by table: all rows of a company's day
    std::vector<CStatement> m_writeRow;   // by table
    std::vector<CStatement> m_readSeries; // by place
};

} // namespace reportd
