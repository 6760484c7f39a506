#pragma once

#include <optional>

#include "lenses/Kinds.h"
#include "model/FollowingJob.h"
#include "model/ModelState.h"

namespace quon {

/// The kept files below the scope by kind. Threads: main only.
class KindsLens {
 public:
  static constexpr Lens kLens = Lens::kinds;

  Observed<std::optional<Kinds::Aggregate>> _kinds;
  Observed<bool> _kindsScanning;

 protected:
  explicit KindsLens(ModelState& model);
  void deriveLens(bool isShown);

 private:
  ModelState& state;
  FollowingJob<Kinds::Aggregate> job;
};

}  // namespace quon
