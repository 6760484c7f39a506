#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/LatestJob.h"
#include "model/ModelState.h"

namespace quon {

/// What is kept between launches: the roots scanned last, and whether the user has been welcomed. Read and
/// written in the background; what several programs store is merged. Threads: main only.
class Settings {
 public:
  /// Scanned last first; what was kept is there once `areSettingsStored`.
  Observed<std::vector<std::string>> _recentRoots;
  Observed<bool> _showOnboarding;  ///< false until it is known that the user was never welcomed

  /// False while they are read, or something waits to be kept.
  [[nodiscard]] bool areSettingsStored() const { return !job.isRunning(); }
  /// The user has been welcomed, and never will be again.
  void finishOnboarding();
  /// The diagnostic of the map's transitions was requested.
  [[nodiscard]] bool isGapProbeRequested() const { return gapProbeRequested; }
  /// A scan of the root has begun. Within an operation.
  void rememberRoot(const std::string& root);

 protected:
  /// Begins to read them.
  explicit Settings(ModelState& model);

 private:
  struct Stored {
    std::vector<std::string> recentRoots;
    bool hasOnboarded = false;
    bool gapProbe = false;
    std::string failure = {};  ///< why they could not be kept; "" when they were
  };

  void synchronise();
  void raise(const std::string& reason);

  ModelState& state;
  std::vector<std::string> unsavedRoots;  // scanned first first
  bool unsavedOnboarded = false;
  bool gapProbeRequested = false;
  LatestJob<Stored> job;
};

}  // namespace quon
