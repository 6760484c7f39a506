#pragma once

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

  void refreshIndexes();
  /// Removes indexes of no use; the toast reports what that freed.
  void collectIndexGarbage();

 protected:
  explicit Catalogue(ModelState& model);

 private:
  ModelState& state;
  LatestJob<std::vector<IndexEntry>> listing;
  LatestJob<IndexCatalog::Collected> collection;
};

}  // namespace quon
