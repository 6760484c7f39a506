#include "model/GapProbe.h"

#include <fmt/format.h>

#include "base/Log.h"
#include "platform/Desktop.h"

namespace quon {

GapProbe::GapProbe(ModelState& model, const Settings& keptSettings)
    : state(model), settings(keptSettings), self(std::make_shared<GapProbe*>(this)) {}

void GapProbe::armGapProbeIfRequested() {
  if (!settings.isGapProbeRequested() || isWaiting || hasRun || !onGapProbe) return;
  isWaiting = true;
  state.services.desktop.whenUnlocked([weak = std::weak_ptr(self)] {
    if (const auto alive = weak.lock()) (*alive)->runGapProbeOnce();
  });
}

void GapProbe::runGapProbeOnce() {
  if (hasRun || !onGapProbe) return;
  hasRun = true;
  state.services.log.line(fmt::format("transition probe: {} drill/up cycles…", kGapProbeCycles));
  onGapProbe(kGapProbeCycles);
}

}  // namespace quon
