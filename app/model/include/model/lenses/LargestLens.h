#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "model/FollowingJob.h"
#include "model/ModelState.h"
#include "rows/FolderRows.h"

namespace quon {

/// The largest files below the scope. Threads: main only.
class LargestLens {
 public:
  static constexpr Lens kLens = Lens::largest;

  Observed<std::optional<std::vector<Entry>>> _largest;  ///< largest first in the metric
  Observed<std::size_t> _largestFound;                   ///< how many kept files there are
  Observed<bool> _largestScanning;

 protected:
  explicit LargestLens(ModelState& model);
  void deriveLens(bool isShown);

 private:
  ModelState& state;
  FollowingJob<LargestFiles> job;
};

}  // namespace quon
