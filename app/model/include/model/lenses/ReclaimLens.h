#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lenses/Reclaim.h"
#include "model/FollowingJob.h"
#include "model/ModelState.h"

namespace quon {

/// The folders below the scope, and in the whole tree, whose contents come back by themselves. Threads: main
/// only.
class ReclaimLens {
 public:
  static constexpr Lens kLens = Lens::reclaim;
  using Groups = std::vector<Reclaim::Group>;

  Observed<std::optional<Groups>> _reclaim;  ///< below the scope
  Observed<bool> _reclaimScanning;
  Observed<std::optional<Groups>> reclaimAllCache;  ///< of the whole tree, once somebody asked
  Observed<bool> _reclaimAllScanning;

  /// Finds the groups of the whole tree, now and whenever it changes.
  void reclaimAllGroups();

 protected:
  explicit ReclaimLens(ModelState& model);
  void deriveLens(bool isShown);

 private:
  [[nodiscard]] FollowingJob<Groups>::Work work(std::string path) const;

  ModelState& state;
  bool wantsAll = false;
  FollowingJob<Groups> job;
  FollowingJob<Groups> jobOfAll;
};

}  // namespace quon
