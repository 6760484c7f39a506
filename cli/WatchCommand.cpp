#include <chrono>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <string>
#include <variant>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "live/LiveWatcher.h"

namespace quon::cli {
namespace {

std::string clockTime() {
  return localTime(
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
}

/// Prints each event of the model.
class Watch {
 public:
  Watch(Session& owner, const Command& what) : session(owner), command(what) {
    session.model().onLiveEvent = [this](const LiveWatcher::Event& event) { showEvent(event); };
  }
  ~Watch() { session.model().onLiveEvent = nullptr; }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Until changes can no longer be watched.
  void run() {
    const AppModel& model = session.model();
    while (true) {
      session.await([&] { return model._isLive.get() || hasEnded(); });
      if (!model._isLive.get()) {
        const std::string& why = model.problem(Problem::Kind::notWatched);
        throw CommandFailure("changes cannot be watched: " + (why.empty() ? reason : why));
      }
      paused = false;
      showReady();
      session.runner().runUntil([&] { return paused; });
    }
  }

 private:
  /// Nothing is watched, and nothing will be by itself.
  [[nodiscard]] bool hasEnded() const {
    const AppModel& model = session.model();
    return !model._isLive.get() && !model.isLiveStarting() && !model.isRecovering() && !model.isBusy();
  }

  void showReady() {
    const AppModel::LastRun& run = session.model().lastRun;
    const std::string message = run.wasLoaded ? run.message : "scanned";
    if (command.json) return line(Json{{"event", "ready"}, {"message", message}});
    const DirNode& root = *session.model()._result.get()->root;
    line(fmt::format("{}  {}: {}, {}", message, displayText(session.model().shownTree()->root.path()), counted(root.totalFiles, "file"),
                     humanBytes(root.totalLogical)));
  }

  void showEvent(const LiveWatcher::Event& event) {
    if (const auto* rescan = std::get_if<LiveWatcher::NeedsRescan>(&event)) {
      // It goes on from what the other program has done, and says what that was.
      if (rescan->cause == LiveWatcher::Cause::superseded) return;
      paused = true;
      reason = rescan->reason;
      if (command.json) return line(Json{{"event", "needsRescan"}, {"reason", rescan->reason}});
      return line(clockTime() + "  live updates paused — " + rescan->reason);
    }
    const auto& update = std::get<LiveWatcher::Update>(event);
    const Refresh::Outcome& outcome = update.outcome;
    if (command.json) {
      return line(Json{{"event", "applied"},
                       {"changedDirs", toJson(update.changedDirs)},
                       {"replacedPrefixes", toJson(update.replacedPrefixes)},
                       {"refreshedDirs", outcome.refreshedDirs},
                       {"walkedSubtrees", outcome.walkedSubtrees},
                       {"removedSubtrees", outcome.removedSubtrees},
                       {"eventId", outcome.newEventId}});
    }
    const DirNode& root = *session.model()._result.get()->root;
    line(fmt::format("{}  {} changed, {} new, {} gone: {}, {}  {}", clockTime(), outcome.refreshedDirs,
                     outcome.walkedSubtrees, outcome.removedSubtrees, counted(root.totalFiles, "file"),
                     humanBytes(root.totalLogical), firstChange(update)));
  }

  /// One of the folders concerned, to give the line a face.
  static std::string firstChange(const LiveWatcher::Update& update) {
    if (!update.replacedPrefixes.empty()) return displayText(update.replacedPrefixes.front());
    return update.changedDirs.empty() ? "" : displayText(update.changedDirs.front());
  }

  void line(const Json& document) {
    printDocument(document);
    flush();
  }
  void line(const std::string& text) {
    print(text + "\n");
    flush();
  }
  static void flush() {
    if (!flushOutput()) throw CommandFailure("cannot write to standard output: it was closed");
  }

  Session& session;
  const Command& command;
  bool paused = false;
  std::string reason;  ///< why, the last time
};

}  // namespace

int runWatch(Session& session, const Command& command) {
  Watch watch(session, command);
  (void)session.open(session.resolve(command.path));
  watch.run();
  return 0;
}

}  // namespace quon::cli
