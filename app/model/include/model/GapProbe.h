#pragma once

#include <functional>
#include <memory>

#include "model/ModelState.h"
#include "model/Settings.h"

namespace quon {

/// A diagnostic for developers: the first time the screen is unlocked after a tree was shown, the map drills down
/// and back up a few times while its timings are recorded. It changes no data. Requested by the setting "gapprobe".
/// Threads: main only.
class GapProbe {
 public:
  static constexpr int kGapProbeCycles = 3;

  /// How the map drives it: drills down and up so many times. None where there is no map.
  std::function<void(int cycles)> onGapProbe;

  /// Waits for the screen to be unlocked, once, if that was requested and there is a map.
  void armGapProbeIfRequested();
  void runGapProbeOnce();

 protected:
  GapProbe(ModelState& model, const Settings& keptSettings);

 private:
  ModelState& state;
  const Settings& settings;
  std::shared_ptr<GapProbe*> self;
  bool isWaiting = false;
  bool hasRun = false;
};

}  // namespace quon
