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

/// Tells each event of the model, until live updates end.
class Watch {
 public:
  Watch(Session& owner, const Command& what) : session(owner), command(what) {
    session.model().onLiveEvent = [this](const LiveWatcher::Event& event) { showEvent(event); };
  }
  ~Watch() { session.model().onLiveEvent = nullptr; }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  void run(const OpenedTree& tree) {
    if (tree.index.empty())
      throw CommandFailure("changes are kept in a saved index, and none could be saved");
    // Live updates that ended when they were to begin: a scan would end in the same way.
    session.await([this] { return !session.model().isLiveStarting(); });
    if (!session.model()._isLive.get())
      throw CommandFailure("changes cannot be watched: " +
                           (reason.empty() ? session.model().problem(Problem::Kind::notWatched) : reason));
    paused = false;
    showReady(tree);
    session.runner().runUntil([this] { return paused; });
  }

 private:
  void showReady(const OpenedTree& tree) {
    const AppModel::LastRun& run = session.model().lastRun;
    const std::string message = run.wasLoaded ? run.message : "scanned";
    if (command.json) return line(Json{{"event", "ready"}, {"message", message}});
    const DirNode& root = *tree.result->root;
    line(fmt::format("{}  {}: {}, {}", message, displayText(tree.root), counted(root.totalFiles, "file"),
                     humanBytes(root.totalLogical)));
  }

  void showEvent(const LiveWatcher::Event& event) {
    if (const auto* rescan = std::get_if<LiveWatcher::NeedsRescan>(&event)) {
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
  session.model().options.liveUpdates = true;
  Watch watch(session, command);
  for (OpenedTree tree = session.open(session.resolve(command.path));; tree = session.scan(tree.root)) {
    watch.run(tree);
  }
}

}  // namespace quon::cli
