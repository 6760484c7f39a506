#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "model/LatestJob.h"
#include "model/ModelState.h"
#include "store/IndexCatalog.h"

namespace quon {

/// The saved indexes. Visiting their roots may wait for disks that do not answer, on a queue of its own.
/// Threads: main only.
class Catalogue {
 public:
  Observed<std::vector<IndexEntry>> _indexes;
  Observed<bool> _indexesLoading;

  /// What the program's own files take on the disk, bytes.
  Observed<std::uint64_t> _selfFootprint;

  void refreshIndexes();
  /// Measures the program's own files, unless that was done within the last minute; `force` does it all the same.
  void refreshSelfFootprint(bool force);
  /// Removes indexes of no use; the toast reports what that freed.
  void collectIndexGarbage();

 protected:
  explicit Catalogue(ModelState& model);

 private:
  ModelState& state;
  LatestJob<std::vector<IndexEntry>> listing;
  LatestJob<IndexCatalog::Collected> collection;
  std::optional<std::int64_t> footprintReadAt;  // seconds since 1970
  LatestJob<std::uint64_t> footprint;
};

}  // namespace quon
