#include "server/store/Schema.h"

#include <sqlite3.h>

#include <array>

namespace reportd {

namespace {

// Marks the file as ours: "Ampr" (PRAGMA application_id).
constexpr std::int64_t kApplicationId = 0x416D7072;

// Each step leads from the version that is its index to the next one. What has been released is never edited.
//
// Everywhere: site is the company's number in the catalogue; day counts the days since 1970-01-01 in Japan; slot is the
// number of the interval in its day (five_minute: 0 to 287, hourly: 0 to 23, peak: 0); published (the publisher's
// stamp) and observed are Unix seconds, values megawatts, *_minute the minute of the day at which a peak's hour starts.
//
// A row of the three tables of figures says what one file brought for one interval: a value that is NULL was not new in
// it. The latest value of an interval is that of the row with the greatest (published, observed) in which it is not
// NULL. Rows of several values, because a year of five companies needs half the room that way.
//
// day says of each day that is known: revision: see CFigureStore::State; published, observed, source: stamp of the
// newest file that counted, when it was last found to be the current one, and the day that it is of; kinds: the codes
// of the series that have a value, joined by or.
constexpr std::array<const char*, 2> kSteps = {
    R"sql(
CREATE TABLE day(
    site INTEGER NOT NULL,
    day INTEGER NOT NULL,
    revision INTEGER NOT NULL CHECK(revision >= 0),
    published INTEGER NOT NULL,
    observed INTEGER NOT NULL,
    source INTEGER NOT NULL,
    kinds INTEGER NOT NULL,
    PRIMARY KEY(site, day)) STRICT, WITHOUT ROWID;
CREATE TABLE five_minute(
    site INTEGER NOT NULL,
    day INTEGER NOT NULL,
    slot INTEGER NOT NULL CHECK(slot BETWEEN 0 AND 287),
    published INTEGER NOT NULL,
    observed INTEGER NOT NULL,
    instant INTEGER CHECK(instant >= 0),
    solar INTEGER CHECK(solar >= 0),
    wind INTEGER CHECK(wind >= 0),
    PRIMARY KEY(site, day, slot, published, observed),
    FOREIGN KEY(site, day) REFERENCES day ON DELETE CASCADE) STRICT, WITHOUT ROWID;
CREATE TABLE hourly(
    site INTEGER NOT NULL,
    day INTEGER NOT NULL,
    slot INTEGER NOT NULL CHECK(slot BETWEEN 0 AND 23),
    published INTEGER NOT NULL,
    observed INTEGER NOT NULL,
    actual INTEGER CHECK(actual >= 0),
    estimated INTEGER CHECK(estimated >= 0),
    supply INTEGER CHECK(supply >= 0),
    PRIMARY KEY(site, day, slot, published, observed),
    FOREIGN KEY(site, day) REFERENCES day ON DELETE CASCADE) STRICT, WITHOUT ROWID;
CREATE TABLE peak(
    site INTEGER NOT NULL,
    day INTEGER NOT NULL,
    slot INTEGER NOT NULL CHECK(slot = 0),
    published INTEGER NOT NULL,
    observed INTEGER NOT NULL,
    supply INTEGER CHECK(supply >= 0),
    supply_minute INTEGER CHECK(supply_minute BETWEEN 0 AND 1439),
    demand INTEGER CHECK(demand >= 0),
    demand_minute INTEGER CHECK(demand_minute BETWEEN 0 AND 1439),
    PRIMARY KEY(site, day, slot, published, observed),
    FOREIGN KEY(site, day) REFERENCES day ON DELETE CASCADE) STRICT, WITHOUT ROWID;
)sql",
    R"sql(
CREATE TABLE poll_state(
    site INTEGER NOT NULL PRIMARY KEY,
    next_poll INTEGER,
    last_attempt INTEGER,
    last_success INTEGER,
    published INTEGER,
    failures INTEGER NOT NULL,
    etag TEXT NOT NULL,
    last_modified TEXT NOT NULL,
    url TEXT NOT NULL,
    layout TEXT NOT NULL,
    last_failure TEXT NOT NULL) STRICT, WITHOUT ROWID;
)sql"};

std::string NameOf(const CDatabase& database)
{
    return std::string("the store ") + sqlite3_db_filename(database.Handle(), "main");
}

// The version of a store of ours; 0 for an empty database. In a transaction, for another process may be making it.
std::size_t ReadVersion(CDatabase& database)
{
    const std::int64_t owner = database.ReadInteger("PRAGMA application_id");
    const std::int64_t version = database.ReadInteger("PRAGMA user_version");
    const bool isEmpty = database.ReadInteger("SELECT count(*) FROM sqlite_schema") == 0;
    if (owner != kApplicationId && !(owner == 0 && version == 0 && isEmpty)) {
        throw std::runtime_error(NameOf(database) + " is the database of another program");
    }
    if (version < 0 || version > SchemaVersion()) {
        throw std::runtime_error(NameOf(database) + " has version " + std::to_string(version) +
                                 "; this program knows versions up to " + std::to_string(SchemaVersion()));
    }
    return static_cast<std::size_t>(version);
}

void BringUpToDate(CDatabase& database)
{
    CTransaction transaction(database);
    // Read again: another process may have done it meanwhile.
    for (std::size_t version = ReadVersion(database); version < kSteps.size(); ++version) {
        database.Execute(kSteps.at(version));
    }
    database.Execute(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
    database.Execute(("PRAGMA user_version = " + std::to_string(SchemaVersion())).c_str());
    transaction.Commit();
}

bool IsOld(CDatabase& database)
{
    const CTransaction transaction(database, CTransaction::Kind::kRead);
    return ReadVersion(database) < kSteps.size();
}

} // namespace

int SchemaVersion() { return static_cast<int>(kSteps.size()); }

void PrepareForWriting(CDatabase& database)
{
    const bool isOld = IsOld(database);
    database.KeepUp();
    if (isOld) {
        BringUpToDate(database);
    }
}

void PrepareForReading(CDatabase& database)
{
    if (IsOld(database)) {
        throw std::runtime_error(
            NameOf(database) +
            " was made by an older version of this program, which the first writer brings up to date");
    }
}

} // namespace reportd
