#pragma once

#include <string>

namespace quon {

class Database;

// The tables and indexes of an index file, each written once; the scripts and the check are made of them.

/// Makes the tables of a new file, with settings for one that is built under another name and then moved into
/// place: no journal, no waiting for the disk.
[[nodiscard]] const std::string& buildScript();
/// The secondary indexes and the registry of links, for a file that may have them already.
[[nodiscard]] const std::string& patchIndexScript();

/// StoreError (incompatible) unless the schema of the file consists of the tables of an index as they are
/// made here, with or without the parts that patchIndexScript adds.
void checkSchema(Database& database, const std::string& path);

/// The refusal of an index that cannot be trusted.
[[nodiscard]] std::string incompleteMessage(const std::string& path);

}  // namespace quon
