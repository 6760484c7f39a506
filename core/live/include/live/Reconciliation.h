#pragma once

#include <memory>

#include "live/Refresh.h"
#include "platform/Platform.h"
#include "store/IndexedRoot.h"

namespace quon {

struct Loaded;

namespace Refresh {

/// Finds what changed below a root when no journal can say so: one walk of the disk, whose findings are compared
/// with an index. Exact on every file system, whatever its times are worth.
///
/// Threads: `cancel` any; all else one. The walk runs on threads of its own, beside whatever its owner does.
class Reconciliation {
 public:
  /// Begins at once. `threads` as for a scan. Throws std::system_error.
  Reconciliation(const Platform& platform, const IndexedRoot& index, unsigned threads);
  /// Cancels the walk and waits for it.
  ~Reconciliation();
  Reconciliation(const Reconciliation&) = delete;
  Reconciliation& operator=(const Reconciliation&) = delete;

  void cancel();
  /// Waits for the walk. The folders whose own entries or attributes differ from what the index says; each is
  /// shallow. `loaded` is the index as it is now. Throws Failure (cancelled, deviceChanged), StoreError.
  [[nodiscard]] Changes changes(const Loaded& loaded);

 private:
  class Walk;
  std::unique_ptr<Walk> walk;
};

}  // namespace Refresh

}  // namespace quon
