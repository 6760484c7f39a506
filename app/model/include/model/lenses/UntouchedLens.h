#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "model/FollowingJob.h"
#include "model/ModelState.h"
#include "rows/Entry.h"

namespace quon {

/// What nobody has changed below the scope since the cutoff. Threads: main only.
class UntouchedLens {
 public:
  static constexpr Lens kLens = Lens::age;

  Observed<std::int64_t> _ageCutoff;  ///< seconds before now; views set
  Observed<std::optional<std::vector<Entry>>> _ageHits;
  Observed<bool> _ageScanning;

  /// Scans again, seen or not.
  void scheduleAgeScan();

 protected:
  explicit UntouchedLens(ModelState& model);
  void deriveLens(bool isShown);

 private:
  ModelState& state;
  FollowingJob<std::vector<Entry>> job;
};

}  // namespace quon
