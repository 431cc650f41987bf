// The tables of the store and their versions.
#pragma once

#include "server/store/Database.h"

namespace reportd {

// The version of the schema that this program reads and writes.
int SchemaVersion();

// Makes a database ready for use: checks that it is an empty one or a store of ours, makes the missing tables, brings
// older ones up to date (all in one transaction) and calls KeepUp. Throws std::runtime_error for another program's
// database and for a newer version, before anything was changed, and CSqlError.
void PrepareForWriting(CDatabase& database);

// Checks that a database is a store of this version. Throws std::runtime_error when it is not, and CSqlError.
void PrepareForReading(CDatabase& database);

} // namespace reportd
