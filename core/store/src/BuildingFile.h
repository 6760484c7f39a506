#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Files.h"

namespace quon {

/// The file that an index is built in, beside the final one: nothing is seen under the final name before it
/// is whole. Threads: confined to one.
class BuildingFile {
 public:
  /// Makes the file, and first the folder when it is missing; sweeps the builds of the same index that were
  /// left an hour ago or more. StoreError (sqlite) "cannot open PATH: reason".
  BuildingFile(const FileService& files, std::string finalURL);
  /// Removes what was not moved into place.
  ~BuildingFile();
  BuildingFile(const BuildingFile&) = delete;
  BuildingFile& operator=(const BuildingFile&) = delete;

  /// Replaces an earlier index. Nothing may have the file open. std::system_error; the earlier index is as it
  /// was then.
  void moveIntoPlace();
  void remove();

  const std::string finalURL;
  const std::string url;

 private:
  const FileService& files;
  bool exists = false;
};

/// Makes an index ready to be moved or replaced: rolls back what a patch left unfinished when it was killed, and
/// writes what another program left in a write-ahead log. std::system_error.
void settle(const FileService& files, const std::string& url);

/// Removes the builds in the folder of the indexes whose names begin with `prefix` and that no scan has
/// written to for an hour: a younger one may belong to a scan that runs. Returns the bytes that were freed.
/// std::system_error.
std::uint64_t removeStaleBuilds(const FileService& files, const std::string& folder, std::string_view prefix);

}  // namespace quon
