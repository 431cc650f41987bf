// SQL statements.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace reportd {

// SQLite has refused something. The text names the file and says why.
class CSqlError : public std::runtime_error {
public:
    // code: SQLite's extended result code; database: the connection that it came from, null when there is none.
    CSqlError(int code, sqlite3* database, const std::string& file);

    // Whether the file's content is to blame: it is no database, or one of its pages cannot be right.
    bool IsDamage() const;
    // Whether the system could not read or write the file.
    bool IsInputOutput() const;
    // Whether another connection is using the file.
    bool IsBusy() const;

private:
    int m_code;
};

// Throws CSqlError when a call has returned this code and it tells of a failure.
void CheckSql(int code, sqlite3* database);

// A statement that is prepared once and run many times. It must go before its database does. One thread at a time.
class CStatement {
public:
    // sql: one statement. Throws CSqlError.
    CStatement(sqlite3* database, std::string_view sql);

private:
    friend class CRun;
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalizer> m_statement;
};

// One run of a statement; a second one of the same statement may begin when this object has gone. While it lives after
// the first Next, it holds what it reads as it was then. All operations but the destructor throw CSqlError.
class CRun {
public:
    // Binds the values to ?1, ?2, ...: integers, optional ones (none: NULL), texts. Texts must outlive the run.
    template <class... Values>
    explicit CRun(CStatement& statement, const Values&... values) : m_statement(statement.m_statement.get())
    {
        (Bind(values), ...);
    }
    ~CRun();
    CRun(const CRun&) = delete;
    CRun& operator=(const CRun&) = delete;

    // Binds the next parameter.
    void Bind(std::int64_t value);
    void Bind(const std::optional<std::int64_t>& value);
    void Bind(std::string_view value);

    // Whether there is a further row. A statement that gives no rows is carried out by this.
    bool Next();

    // Of the current row, columns from 0. NULL reads as none, 0 and empty.
    std::optional<std::int64_t> OptionalInteger(int column) const;
    std::int64_t Integer(int column) const;
    std::string Text(int column) const;

private:
    sqlite3_stmt* m_statement;
    int m_bound = 0;
};

} // namespace reportd
