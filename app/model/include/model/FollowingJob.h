#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "model/LatestJob.h"

namespace quon {

/// A result that follows what is shown: made anew, in the background, whenever what it depends on has changed
/// and someone sees it. While it is made anew, the earlier one stays; with the tree that it is about, it
/// goes.
///
/// Threads: main only, within operations.
template <typename Result>
class FollowingJob {
 public:
  using Work = typename LatestJob<Result>::Work;

  struct Hooks {
    std::function<Work()> prepare;  ///< takes from the model what the work needs
    std::function<void(Result&&)> deliver;
    std::function<void()> clear;  ///< the result is about what is shown no longer
    std::function<void(const std::string& reason)> fail = nullptr;  ///< none: a problem that stands
  };

  /// `running` is set while the result is on its way.
  FollowingJob(ModelState& model, std::string_view queueName, Job::Reads what, Observed<bool>& running,
               Hooks given)
      : state(model),
        hooks(std::move(given)),
        isRunning(running),
        job(
            model, queueName, what,
            [this](Result&& result) {
              isRunning.set(false);
              state.clear(Problem::Kind::lens);
              hooks.deliver(std::move(result));
            },
            [this](const std::string& reason) {
              isRunning.set(false);
              if (hooks.fail) return hooks.fail(reason);
              hooks.clear();
              state.raise(Problem::Kind::lens, "This could not be worked out: " + reason);
            }) {}

  /// Called at the end of each operation with what the result depends on now; `key.tree` is 0 when there is
  /// nothing that it could be about.
  void follow(const ViewKey& key, bool isSeen, std::chrono::duration<double> delay = {}) {
    if (madeOf && madeOf->tree != key.tree) drop();
    if (key.tree == 0) return;
    const bool isWanted = requested || job.wasInterrupted();
    if (!isWanted && !(isSeen && madeOf != key)) return;
    requested = false;
    madeOf = key;
    isRunning.set(true);
    job.start(hooks.prepare(), delay);
  }
  /// Makes it anew with the next `follow`, seen or not.
  void request() { requested = true; }
  void clear() {
    requested = false;
    drop();
  }

 private:
  void drop() {
    job.stop();
    madeOf.reset();
    isRunning.set(false);
    hooks.clear();
  }

  ModelState& state;
  Hooks hooks;
  Observed<bool>& isRunning;
  std::optional<ViewKey> madeOf;  // or being made of
  bool requested = false;
  LatestJob<Result> job;
};

}  // namespace quon
