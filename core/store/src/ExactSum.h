#pragma once

struct sqlite3;

namespace quon {

/// Replaces SQL's sum() on a connection by one over unsigned 64-bit sizes: SQLite's own is signed and gives
/// up at two files of 8 EiB. The result is the sum's 64 bits as SQLite's signed integer; readers cast it
/// back. A value that is no integer or is negative, and a sum beyond 64 bits, fail the statement.
void registerExactSum(sqlite3* connection);

}  // namespace quon
