// A connection to an SQLite file.
#pragma once

#include "server/store/Statement.h"

#include <filesystem>
#include <memory>

namespace reportd {

// One thread at a time. Every operation but HasMoved and KeepAsItIs throws CSqlError.
class CDatabase {
public:
    // Opens the file. mayWrite: makes it when it does not exist (not its folder). Nothing is read from it yet. Other
    // connections are waited for up to 10 seconds. Until KeepUp is called, closing leaves the file and its write-ahead
    // log as they are.
    CDatabase(const std::filesystem::path& file, bool mayWrite);

    sqlite3* Handle() const { return m_database.get(); }

    // Carries out statements that give no rows, or whose rows do not matter.
    void Execute(const char* sql);
    // The first column of the first row.
    std::int64_t ReadInteger(const char* sql);

    // The file is one of ours: from now on commits are on the disk when they return, the write-ahead log is kept near
    // 1 MiB, and closing the last connection merges it into the file. Changes the file's mode; for a writer.
    void KeepUp();
    // Closing leaves everything as it is again.
    void KeepAsItIs() noexcept;

    // Whether the file was deleted or has got another name since it was opened.
    bool HasMoved() const noexcept;

private:
    struct Closer {
        void operator()(sqlite3* database) const;
    };
    std::unique_ptr<sqlite3, Closer> m_database;
};

// Everything between construction and Commit is done together, on one state of the file. Without Commit nothing is
// done.
class CTransaction {
public:
    enum class Kind {
        kWrite, // waits for other writers first
        kRead,  // changes nothing and blocks no writer
    };

    explicit CTransaction(CDatabase& database, Kind kind = Kind::kWrite);
    ~CTransaction();
    CTransaction(const CTransaction&) = delete;
    CTransaction& operator=(const CTransaction&) = delete;

    // Throws CSqlError when it cannot be done; then nothing is done.
    void Commit();

private:
    CDatabase& m_database;
};

} // namespace reportd
