#include "server/store/StoreSession.h"

#include <set>

namespace reportd {

namespace {

// Days in one transaction of TrimSome: some 4,000 rows.
constexpr std::int64_t kTrimmedDays = 8;

// The revision of a day's first figure is random, so that a day which is deleted and stored again has another one.
constexpr const char* kWriteDay = R"sql(
INSERT INTO day(site, day, published, observed, source, kinds, revision)
VALUES(?1, ?2, ?3, ?4, ?5, ?6, iif(?6 = 0, 0, (random() & 1099511627775) + 1))
ON CONFLICT DO UPDATE SET
    published = ?3, observed = ?4, source = ?5, kinds = kinds | ?6,
    revision = iif(?6 = 0, revision, iif(revision = 0, excluded.revision, revision + 1)))sql";

constexpr const char* kSavePollState = R"sql(
INSERT OR REPLACE INTO poll_state(site, next_poll, last_attempt, last_success, published, failures, etag, last_modified,
    url, layout, last_failure)
VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11))sql";

constexpr const char* kLoadPollState = R"sql(
SELECT next_poll, last_attempt, last_success, published, failures, etag, last_modified, url, layout, last_failure
FROM poll_state WHERE site = ?1)sql";

std::optional<std::int64_t> OptionalSeconds(const std::optional<LocalTime>& time)
{
    return time ? std::optional(SecondsOf(*time)) : std::nullopt;
}

LocalTime TimeOf(std::int64_t seconds) { return JapanTime(std::chrono::sys_seconds(std::chrono::seconds(seconds))); }

std::optional<LocalTime> TimeOf(const std::optional<std::int64_t>& seconds)
{
    return seconds ? std::optional(TimeOf(*seconds)) : std::nullopt;
}

std::int64_t Number(local_days day) { return day.time_since_epoch().count(); }

std::string ColumnsOf(const FigureTable& table)
{
    std::string list;
    for (std::size_t column = 0; column < table.count; ++column) {
        list += std::string(", ") + std::string(table.columns.at(column));
    }
    return list;
}

std::string ReadDaySql(const FigureTable& table)
{
    return "SELECT slot, published, observed" + ColumnsOf(table) + " FROM " + std::string(table.name) +
           " WHERE site = ?1 AND day = ?2";
}

// What is observed of one publication within one second shares a row, in which the last word counts.
std::string WriteRowSql(const FigureTable& table)
{
    std::string parameters;
    std::string changes;
    for (std::size_t column = 0; column < table.count; ++column) {
        const std::string name(table.columns.at(column));
        parameters += ", ?" + std::to_string(column + 6);
        changes += column == 0 ? "" : ", ";
        changes.append(name).append(" = coalesce(excluded.").append(name).append(", ").append(name).append(")");
    }
    return "INSERT INTO " + std::string(table.name) + "(site, day, slot, published, observed" + ColumnsOf(table) +
           ") VALUES(?1, ?2, ?3, ?4, ?5" + parameters + ") ON CONFLICT DO UPDATE SET " + changes;
}

std::string ReadSeriesSql(const FigurePlace& place)
{
    const FigureTable& table = kFigureTables.at(place.table);
    const std::string value(table.columns.at(place.column));
    const std::string minute(InfoOf(place.series).isPeak ? table.columns.at(place.column + 1) : "0");
    return "SELECT slot, " + value + ", " + minute + " FROM " + std::string(table.name) +
           " WHERE site = ?1 AND day = ?2 AND observed <= ?3 AND " + value +
           " IS NOT NULL ORDER BY slot, published, observed";
}

template <class Entries, class Sql>
std::vector<CStatement> PrepareEach(CDatabase& database, const Entries& entries, const Sql& sql)
{
    std::vector<CStatement> statements;
    statements.reserve(entries.size());
    for (const auto& entry : entries) {
        statements.emplace_back(database.Handle(), sql(entry));
    }
    return statements;
}

CDatabase Open(const std::filesystem::path& file, bool mayWrite)
{
    CDatabase database(file, mayWrite);
    if (mayWrite) {
        PrepareForWriting(database);
    } else {
        PrepareForReading(database);
    }
    return database;
}

} // namespace

// A row of the table day.
struct CStoreSession::Day {
    std::int64_t revision = 0;
    FigureStamp stamp;
    std::int64_t source = 0;
};

CStoreSession::CStoreSession(const std::filesystem::path& file, bool mayWrite)
    : m_database(Open(file, mayWrite)),
      m_findDay(Prepare("SELECT revision, published, observed, source FROM day WHERE site = ?1 AND day = ?2")),
      m_writeDay(Prepare(kWriteDay)),
      m_noteCurrent(
          Prepare("UPDATE day SET observed = ?3 WHERE site = ?1 AND (day = ?2 OR (day = ?2 + 1 AND source = ?2))")),
      m_newestDay(Prepare("SELECT day FROM day WHERE site = ?1 AND kinds & ?2 ORDER BY day DESC LIMIT 1")),
      m_loadPollState(Prepare(kLoadPollState)), m_savePollState(Prepare(kSavePollState)),
      m_trim(Prepare(
          "DELETE FROM day WHERE (site, day) IN (SELECT site, day FROM day WHERE day < ?1 LIMIT ?2) RETURNING 1")),
      m_readDay(PrepareEach(m_database, kFigureTables, ReadDaySql)),
      m_writeRow(PrepareEach(m_database, kFigureTables, WriteRowSql)),
      m_readSeries(PrepareEach(m_database, kFigurePlaces, ReadSeriesSql))
{
}

std::size_t CStoreSession::Append(int siteNumber, local_days fileDay, const std::vector<Figure>& figures,
                                  const FigureStamp& stamp)
{
    std::map<local_days, std::vector<Figure>> days;
    days[fileDay]; // is noted even if there is no figure of it
    for (const Figure& figure : figures) {
        days[CheckedDayOf(figure)].push_back(figure);
    }
    CTransaction transaction(m_database);
    std::size_t count = 0;
    for (const auto& [day, figuresOfDay] : days) {
        AppendDay(siteNumber, day, fileDay, figuresOfDay, stamp, count);
    }
    transaction.Commit();
    return count;
}

void CStoreSession::AppendDay(int siteNumber, local_days day, local_days fileDay, const std::vector<Figure>& figures,
                              const FigureStamp& stamp, std::size_t& count)
{
    const std::int64_t number = Number(day);
    const std::optional<Day> known = FindDay(siteNumber, number);
    const bool isOfOtherDay = known && day != fileDay && known->source == number;
    const bool onlyGaps = known && (stamp.published < known->stamp.published || isOfOtherDay);
    CDayFigures latest;
    Know(siteNumber, number, latest);
    for (const Figure& figure : figures) {
        latest.Take(figure, stamp, onlyGaps);
    }
    const FigureStamp& newest = onlyGaps ? known->stamp : stamp;
    CRun(m_writeDay, siteNumber, number, newest.published, newest.observed, onlyGaps ? known->source : Number(fileDay),
         latest.NewKinds())
        .Next();
    for (const FigureRow& row : latest.NewRows()) {
        WriteRow(siteNumber, number, row);
    }
    count += latest.NewCount();
}

std::optional<CStoreSession::Day> CStoreSession::FindDay(int siteNumber, std::int64_t day)
{
    CRun run(m_findDay, siteNumber, day);
    if (!run.Next()) {
        return {};
    }
    return Day{run.Integer(0), {run.Integer(1), run.Integer(2)}, run.Integer(3)};
}

void CStoreSession::Know(int siteNumber, std::int64_t day, CDayFigures& figures)
{
    for (std::size_t table = 0; table < kFigureTables.size(); ++table) {
        CRun run(m_readDay.at(table), siteNumber, day);
        while (run.Next()) {
            FigureRow row{table, run.Integer(0), {run.Integer(1), run.Integer(2)}, {}};
            for (std::size_t column = 0; column < kFigureTables.at(table).count; ++column) {
                row.values.at(column) = run.OptionalInteger(static_cast<int>(column) + 3);
            }
            figures.Know(row);
        }
    }
}

void CStoreSession::WriteRow(int siteNumber, std::int64_t day, const FigureRow& row)
{
    CRun run(m_writeRow.at(row.table), siteNumber, day, row.slot, row.stamp.published, row.stamp.observed);
    for (std::size_t column = 0; column < kFigureTables.at(row.table).count; ++column) {
        run.Bind(row.values.at(column));
    }
    run.Next();
}

void CStoreSession::NoteCurrent(int siteNumber, local_days fileDay, std::int64_t observed)
{
    CRun(m_noteCurrent, siteNumber, Number(fileDay), observed).Next();
}

std::vector<ReportRecord> CStoreSession::Read(int siteNumber, Series series, local_days day, std::int64_t until)
{
    const SeriesInfo& info = InfoOf(series);
    const auto place = PlaceIndexOf(series);
    std::vector<ReportRecord> records;
    std::int64_t lastSlot = -1;
    CRun run(m_readSeries.at(place), siteNumber, Number(day), until);
    while (run.Next()) { // of each slot the latest row comes last
        const std::int64_t slot = run.Integer(0);
        if (slot == lastSlot) {
            records.pop_back();
        }
        records.push_back(RecordOf(info, day, slot, run.Integer(1), run.Integer(2)));
        lastSlot = slot;
    }
    return records;
}

DayState CStoreSession::State(int siteNumber, local_days day)
{
    const std::optional<Day> known = FindDay(siteNumber, Number(day));
    if (!known) {
        return {};
    }
    return {static_cast<std::uint64_t>(known->revision), TimeOf(known->stamp.published), TimeOf(known->stamp.observed)};
}

std::optional<local_days> CStoreSession::NewestDay(int siteNumber, Series series)
{
    CRun run(m_newestDay, siteNumber, static_cast<std::int64_t>(series));
    return run.Next() ? std::optional(local_days(std::chrono::days(run.Integer(0)))) : std::nullopt;
}

PollState CStoreSession::LoadPollState(int siteNumber)
{
    CRun run(m_loadPollState, siteNumber);
    if (!run.Next()) {
        return {};
    }
    return {.nextPoll = TimeOf(run.OptionalInteger(0)),
            .lastAttempt = TimeOf(run.OptionalInteger(1)),
            .lastSuccess = TimeOf(run.OptionalInteger(2)),
            .published = TimeOf(run.OptionalInteger(3)),
            .failures = static_cast<unsigned>(run.Integer(4)),
            .etag = run.Text(5),
            .lastModified = run.Text(6),
            .url = run.Text(7),
            .layout = run.Text(8),
            .lastFailure = run.Text(9)};
}

void CStoreSession::SavePollState(int siteNumber, const PollState& state)
{
    CRun(m_savePollState, siteNumber, OptionalSeconds(state.nextPoll), OptionalSeconds(state.lastAttempt),
         OptionalSeconds(state.lastSuccess), OptionalSeconds(state.published), state.failures, state.etag,
         state.lastModified, state.url, state.layout, state.lastFailure)
        .Next();
}

bool CStoreSession::TrimSome(local_days firstKept)
{
    CTransaction transaction(m_database);
    std::int64_t count = 0;
    {
        CRun run(m_trim, Number(firstKept), kTrimmedDays);
        while (run.Next()) {
            ++count;
        }
    }
    transaction.Commit();
    return count == kTrimmedDays;
}

void CStoreSession::Touch() { m_database.ReadInteger("SELECT count(*) FROM (SELECT 1 FROM day LIMIT 1)"); }

} // namespace reportd
