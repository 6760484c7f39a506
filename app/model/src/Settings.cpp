#include "model/Settings.h"

#include <system_error>
#include <utility>

#include "platform/UserDefaults.h"

namespace quon {
namespace {

constexpr std::size_t kMostRecentRoots = 6;

void moveToFront(std::vector<std::string>& roots, const std::string& root) {
  std::erase(roots, root);
  roots.insert(roots.begin(), root);
  if (roots.size() > kMostRecentRoots) roots.resize(kMostRecentRoots);
}

}  // namespace

Settings::Settings(ModelState& model)
    : _recentRoots(model),
      _showOnboarding(model),
      state(model),
      job(
          model, QueueName::settings, Job::Reads::nothing,
          [this](Stored&& stored) {
            _recentRoots.set(std::move(stored.recentRoots));
            _showOnboarding.set(!stored.hasOnboarded);
            gapProbeRequested = stored.gapProbe;
            if (!stored.failure.empty()) return raise(stored.failure);
            unsavedRoots.clear();
            unsavedOnboarded = false;
            state.clear(Problem::Kind::settings);
          },
          [this](const std::string& reason) { raise(reason); }) {
  synchronise();
}

void Settings::raise(const std::string& reason) {
  state.raise(Problem::Kind::settings, "Settings cannot be kept: " + reason);
}

void Settings::finishOnboarding() {
  state.perform([this] {
    _showOnboarding.set(false);
    unsavedOnboarded = true;
    synchronise();
  });
}

void Settings::rememberRoot(const std::string& root) {
  std::vector<std::string> roots = _recentRoots.get();
  moveToFront(roots, root);
  _recentRoots.set(std::move(roots));
  unsavedRoots.push_back(root);
  synchronise();
}

/// Stores what is not stored yet, into what other programs stored meanwhile, and reads the whole. A start
/// that voids an earlier one carries what that had to store.
void Settings::synchronise() {
  job.start([&defaults = state.services.defaults, roots = unsavedRoots,
             onboarded = unsavedOnboarded](const IsVoid&) -> std::optional<Stored> {
    Stored stored{.recentRoots = defaults.texts("recentRoots"),
                  .hasOnboarded = defaults.flag("hasOnboarded"),
                  .gapProbe = defaults.flag("gapprobe")};
    for (const std::string& root : roots) moveToFront(stored.recentRoots, root);
    const bool isNewlyOnboarded = onboarded && !stored.hasOnboarded;
    stored.hasOnboarded = stored.hasOnboarded || onboarded;
    try {
      if (!roots.empty()) defaults.setTexts("recentRoots", stored.recentRoots);
      if (isNewlyOnboarded) defaults.setFlag("hasOnboarded", true);
    } catch (const std::system_error& failure) {
      stored.failure = failure.what();
    }
    return stored;
  });
}

}  // namespace quon
