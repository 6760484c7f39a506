#pragma once

#include <string>

namespace quon {

class Database;

/// What a new index file is made with: no journal, since it is built under another name and moved into place.
extern const char* const kBuildScript;
/// The secondary indexes and the registry of links, for a file that may have them already.
extern const char* const kPatchIndexScript;

/// StoreError (incompatible) unless the file's schema holds the tables of an index as they are made here,
/// with or without its secondary indexes and registry, and nothing else.
void checkSchema(Database& database, const std::string& path);

/// The refusal of an index that cannot be trusted.
[[nodiscard]] std::string incompleteMessage(const std::string& path);

}  // namespace quon
