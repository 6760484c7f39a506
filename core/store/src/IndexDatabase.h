#pragma once

#include <cstdint>
#include <string>

#include "database/Database.h"

namespace quon {

/// Connections to the files of indexes. Their failures, those of their statements included, are StoreError:
/// sqlite with SQLite's message, or incompatible when a value has another type than the schema says.
namespace IndexDatabase {

/// An existing index, for reading. A file with more than the tables and indexes of an index (a view, a
/// trigger, another schema) is refused before anything of it runs. StoreError: missing "no index at PATH",
/// sqlite "cannot open PATH", incompatible.
/// Rolls back first what a killed writer left unfinished. For one query: its statements fail when they have
/// taken many times the steps that a sound file of this size could need.
[[nodiscard]] Database openRead(const std::string& path);
/// The same, for changing it. StoreError: sqlite "cannot open PATH" + purpose.
[[nodiscard]] Database openWrite(const std::string& path, const std::string& purpose);
/// A new file. StoreError: sqlite "cannot open PATH: " + SQLite's message.
[[nodiscard]] Database create(const std::string& path);

/// Begins a transaction that sees one state of the file until it ends. StoreError when it has waited `waitMs`
/// milliseconds for a writer that is about to commit.
void beginRead(Database& database, int waitMs);

/// The size of the file, or of the memory, that the index is in.
[[nodiscard]] std::uint64_t bytesOf(Database& database);

}  // namespace IndexDatabase

}  // namespace quon
