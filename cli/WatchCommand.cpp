#include <chrono>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <variant>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "base/ThreadQueue.h"
#include "live/LiveWatcher.h"
#include "platform_linux/LinuxThreads.h"

namespace quon::cli {
namespace {

std::chrono::duration<double> steadySeconds() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

std::string clockTime() {
  return localTime(
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count());
}

/// One watch of one root: tells each event, until live updates end.
class Watch {
 public:
  Watch(Session& owner, const Command& what, OpenedTree opened)
      : session(owner),
        command(what),
        tree(std::move(opened)),
        callbacks([] { LinuxThreads::nameThisThread("quon.fsevents.live"); }),
        work([] { LinuxThreads::nameThisThread("quon.live.apply"); }) {}

  /// The reason why a scan is needed.
  std::string run() {
    tellReady();
    const LiveWatcher watcher(
        {session.platform, session.events(), callbacks, work,
         [this](std::function<void()> commit) { session.scans().mainQueue().post(std::move(commit)); },
         [this](const LiveWatcher::Event& event) {
           session.scans().mainQueue().post([this, event] { tell(event); });
         },
         steadySeconds},
        {.root = tree.result.root,
         .rootPath = tree.root,
         .indexURL = tree.index,
         .rootDev = tree.rootDev,
         .topFiles = tree.result.topFiles,
         .sinceEventId = tree.eventId});
    (void)session.scans().mainQueue().runUntil([this] { return !rescanReason.empty(); });
    return rescanReason;
  }

 private:
  void tellReady() {
    const std::string message = tree.message.empty() ? "scanned" : tree.message;
    if (command.json) return line(Json{{"event", "ready"}, {"message", message}});
    const DirNode& root = *tree.result.root;
    line(fmt::format("{}  {}: {} files, {}", message, displayText(tree.root), grouped(root.totalFiles),
                     humanBytes(root.totalLogical)));
  }

  void tell(const LiveWatcher::Event& event) {
    if (const auto* rescan = std::get_if<LiveWatcher::NeedsRescan>(&event)) {
      rescanReason = rescan->reason;
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
    const DirNode& root = *tree.result.root;
    line(fmt::format("{}  {} changed, {} new, {} gone: {} files, {}  {}", clockTime(), outcome.refreshedDirs,
                     outcome.walkedSubtrees, outcome.removedSubtrees, grouped(root.totalFiles),
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
    if (!flushOutput()) throw CommandFailure("nobody reads the changes any more");
  }

  Session& session;
  const Command& command;
  OpenedTree tree;
  std::string rescanReason;
  ThreadQueue callbacks;
  ThreadQueue work;
};

}  // namespace

int runWatch(Session& session, const Command& command) {
  const std::string path = session.resolve(command.path);
  OpenedTree tree = session.open(path, /*catchUp=*/true);
  while (true) {
    if (tree.index.empty())
      throw CommandFailure("changes are kept in a saved index, and none could be saved");
    const std::string root = tree.root;
    (void)Watch(session, command, std::move(tree)).run();
    tree = session.scan({.root = root, .indexDirectory = {}});
  }
}

}  // namespace quon::cli
