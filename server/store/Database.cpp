#include "server/store/Database.h"

#include <chrono>
#include <sqlite3.h>
#include <thread>

namespace reportd {

namespace {

constexpr std::chrono::milliseconds kLockLimit{10'000};
constexpr std::chrono::milliseconds kLockPause{5};

// The change of mode fails at once, whatever the time-out, while another process is making the same file.
void SwitchToWriteAheadLog(CDatabase& database)
{
    const auto end = std::chrono::steady_clock::now() + kLockLimit;
    for (;;) {
        try {
            database.Execute("PRAGMA journal_mode = WAL");
            return;
        } catch (const CSqlError& error) {
            if (!error.IsBusy() || std::chrono::steady_clock::now() >= end) {
                throw;
            }
        }
        std::this_thread::sleep_for(kLockPause);
    }
}

} // namespace

void CDatabase::Closer::operator()(sqlite3* database) const { sqlite3_close(database); }

CDatabase::CDatabase(const std::filesystem::path& file, bool mayWrite)
{
    const int access = mayWrite ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    sqlite3* database = nullptr;
    const int code =
        sqlite3_open_v2(file.c_str(), &database, access | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    m_database.reset(database); // also after a failure, unless there was no memory for it
    if (code != SQLITE_OK) {
        throw CSqlError(code, database, file.string());
    }
    KeepAsItIs();
    sqlite3_busy_timeout(Handle(), static_cast<int>(kLockLimit.count()));
    // The file may have been changed by anybody: it must not make us run what its schema says, nor let a statement of
    // ours change more than rows.
    sqlite3_db_config(Handle(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(Handle(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(Handle(), SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    Execute("PRAGMA foreign_keys = ON; PRAGMA cell_size_check = ON;");
}

void CDatabase::Execute(const char* sql) { CheckSql(sqlite3_exec(Handle(), sql, nullptr, nullptr, nullptr), Handle()); }

std::int64_t CDatabase::ReadInteger(const char* sql)
{
    CStatement statement(Handle(), sql);
    CRun run(statement);
    return run.Next() ? run.Integer(0) : 0;
}

void CDatabase::KeepUp()
{
    // FULL, because with less a power cut takes back commits. One is made every few minutes, so it costs nothing.
    SwitchToWriteAheadLog(*this);
    Execute("PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 200; PRAGMA journal_size_limit = 1048576;");
    sqlite3_db_config(Handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);
}

void CDatabase::KeepAsItIs() noexcept { sqlite3_db_config(Handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr); }

bool CDatabase::HasMoved() const noexcept
{
    int hasMoved = 0;
    sqlite3_file_control(Handle(), "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    return hasMoved != 0;
}

CTransaction::CTransaction(CDatabase& database, Kind kind) : m_database(database)
{
    m_database.Execute(kind == Kind::kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
}

CTransaction::~CTransaction()
{
    // Some failures, and Commit, have ended it already.
    if (sqlite3_get_autocommit(m_database.Handle()) == 0) {
        sqlite3_exec(m_database.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void CTransaction::Commit() { m_database.Execute("COMMIT"); }

} // namespace reportd
