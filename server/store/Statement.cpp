#include "server/store/Statement.h"

#include <sqlite3.h>

#include <system_error>

namespace reportd {

namespace {

constexpr int PrimaryCode(int code) { return code & 0xFF; }

std::string ErrorText(int code, sqlite3* database, const std::string& file)
{
    std::string text = "the store " + file + ": " + sqlite3_errstr(code);
    if (database == nullptr) {
        return text;
    }
    // What the statement had to say of it, unless it says the same.
    const std::string message = sqlite3_errmsg(database);
    if (text.find(message) == std::string::npos) {
        text += ": " + message;
    }
    const int systemError = sqlite3_system_errno(database);
    const bool isOfSystem = PrimaryCode(code) == SQLITE_IOERR || PrimaryCode(code) == SQLITE_CANTOPEN;
    return isOfSystem && systemError != 0 ? text + ": " + std::generic_category().message(systemError) : text;
}

} // namespace

CSqlError::CSqlError(int code, sqlite3* database, const std::string& file)
    : std::runtime_error(ErrorText(code, database, file)), m_code(PrimaryCode(code))
{
}

bool CSqlError::IsDamage() const { return m_code == SQLITE_CORRUPT || m_code == SQLITE_NOTADB; }

bool CSqlError::IsInputOutput() const { return m_code == SQLITE_IOERR; }

bool CSqlError::IsBusy() const { return m_code == SQLITE_BUSY; }

void CheckSql(int code, sqlite3* database)
{
    if (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE) {
        throw CSqlError(code, database, sqlite3_db_filename(database, "main"));
    }
}

void CStatement::Finalizer::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

CStatement::CStatement(sqlite3* database, std::string_view sql)
{
    sqlite3_stmt* statement = nullptr;
    CheckSql(sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                                &statement, nullptr),
             database);
    m_statement.reset(statement);
}

CRun::~CRun()
{
    // What went wrong in the run was thrown by Next.
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

void CRun::Bind(std::int64_t value)
{
    CheckSql(sqlite3_bind_int64(m_statement, ++m_bound, value), sqlite3_db_handle(m_statement));
}

void CRun::Bind(const std::optional<std::int64_t>& value)
{
    if (value) {
        Bind(*value);
    } else {
        CheckSql(sqlite3_bind_null(m_statement, ++m_bound), sqlite3_db_handle(m_statement));
    }
}

void CRun::Bind(std::string_view value)
{
    // An empty view may have no address, which would bind NULL.
    const char* const text = value.empty() ? "" : value.data();
    CheckSql(sqlite3_bind_text64(m_statement, ++m_bound, text, value.size(), SQLITE_STATIC, SQLITE_UTF8),
             sqlite3_db_handle(m_statement));
}

bool CRun::Next()
{
    const int code = sqlite3_step(m_statement);
    CheckSql(code, sqlite3_db_handle(m_statement));
    return code == SQLITE_ROW;
}

std::optional<std::int64_t> CRun::OptionalInteger(int column) const
{
    if (sqlite3_column_type(m_statement, column) == SQLITE_NULL) {
        return {};
    }
    return sqlite3_column_int64(m_statement, column);
}

std::int64_t CRun::Integer(int column) const { return sqlite3_column_int64(m_statement, column); }

std::string CRun::Text(int column) const
{
    const auto* const text = static_cast<const char*>(sqlite3_column_blob(m_statement, column));
    return text == nullptr ? std::string()
                           : std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(m_statement, column)));
}

} // namespace reportd
