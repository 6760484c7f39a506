#include "Session.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Reason.h"
#include "base/Text.h"
#include "platform/Desktop.h"
#include "platform/Files.h"
#include "platform_linux/LinuxThreads.h"
#include "store/IndexCatalog.h"

namespace quon::cli {
namespace {

constexpr int kInterrupted = 130;

std::string refusalOf(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory ? "no such folder" : reasonOf(error);
}

/// The folders at and below this one that could not be read, parents first.
std::vector<const DirNode*> unreadableBelow(const DirNode& scope) {
  std::vector<const DirNode*> unreadable;
  std::vector<const DirNode*> waiting{&scope};
  while (!waiting.empty()) {
    const DirNode* const folder = waiting.back();
    waiting.pop_back();
    if (folder->error) unreadable.push_back(folder);
    for (const RefPtr<DirNode>& child : folder->subdirs) waiting.push_back(child.get());
  }
  return unreadable;
}

}  // namespace

void warn(const std::string& line) {
  fmt::print(stderr, "quon: {}\n", line);
}

void reportUnreadable(const OpenedTree& tree) {
  constexpr std::size_t kListed = 5;
  const std::vector<const DirNode*> unreadable = unreadableBelow(*tree.scope);
  if (unreadable.empty()) return;
  const bool one = unreadable.size() == 1;
  warn(fmt::format("{} {} could not be read and {} missing from the totals:", grouped(unreadable.size()),
                   one ? "folder" : "folders", one ? "is" : "are"));
  const std::size_t listed = std::min(kListed, unreadable.size());
  for (std::size_t index = 0; index < listed; ++index) {
    const std::string path = unreadable[index]->path(pathPrefix(tree.root));
    const std::string reason = reasonOf(unreadable[index]->errorNumber);
    fmt::print(stderr, "  {}{}{}\n", displayText(path.empty() ? "/" : path), reason.empty() ? "" : ": ",
               reason);
  }
  if (unreadable.size() > listed) fmt::print(stderr, "  and {} more\n", grouped(unreadable.size() - listed));
}

/// Each made when it is first asked for: most commands need two or three.
class Session::Queues {
 public:
  BackgroundQueue& queue(std::string_view name) {
    std::unique_ptr<ThreadQueue>& queue = byName[std::string(name)];
    if (!queue) {
      queue =
          std::make_unique<ThreadQueue>([name = std::string(name)] { LinuxThreads().nameThisThread(name); });
    }
    return *queue;
  }

 private:
  std::map<std::string, std::unique_ptr<ThreadQueue>, std::less<>> byName;
};

/// A terminal has none of it.
class Session::NoDesktop final : public DesktopService {
 public:
  void copyText(const std::string&) override {}
  void chooseFolder(const std::string&, std::function<void(const std::string&)>) override {}
  bool hasFullDiskAccess() override { return true; }  // nothing guards folders but their permissions
  void openPrivacySettings() override {}
  void whenUnlocked(std::function<void()>) override {}
};

Session::Session(const Platform& services, Folders places, const Terminal& streams, Stay stay)
    : platform(services),
      folders(std::move(places)),
      terminal(streams),
      interrupts([this] { onInterrupt(); }),
      defaults(folders.config),
      bin(folders.dataHome, folders.userID),
      events(platform.threads, folders, log, {.mayRecord = stay == Stay::stays}),
      queues(std::make_unique<Queues>()),
      desktop(std::make_unique<NoDesktop>()),
      driven(std::make_unique<AppModel>(AppModel::Services{
          platform, events, defaults, *desktop, volumes, diagnostics, bin, folders, loop,
          [this](std::string_view name) -> BackgroundQueue& { return queues->queue(name); },
          [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()); },
          [] {
            return std::chrono::duration_cast<std::chrono::seconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                .count();
          }})) {
  // The widget shows what the user keeps an eye on, not what a command was once asked for.
  driven->options.writesSnapshot = stay == Stay::stays;
  driven->options.liveUpdates = stay == Stay::stays;
  // A root on a disk that does not answer would hold up the end of the command: `indexes --collect` does it.
  driven->options.collectsIndexes = false;
  starts = driven->_scanStats.observe([this](const std::string&) { reportWhyScanned(); });
  runs = std::make_unique<Runner>(platform, terminal, loop, *driven);
  const MutexLock held(lock);
  interrupted = runs.get();
}

Session::~Session() {
  const MutexLock held(lock);
  interrupted = nullptr;
}

void Session::onInterrupt() {
  const MutexLock held(lock);
  if (interrupted == nullptr) leaveNow(kInterrupted);
  interrupted->onInterrupt();
}

std::string Session::resolve(const std::string& typed) const {
  std::string path = typed;
  if (path.empty()) path = defaults.text("root").value_or(folders.home);
  path = expandTilde(path, folders.home);
  const auto refuse = [&](const std::string& reason) {
    throw CommandFailure("cannot open " + displayText(path) + ": " + reason);
  };
  std::error_code error;
  const auto canonical = platform.files.canonical(path, error);
  if (!canonical) refuse(refusalOf(error));
  const auto facts = platform.files.facts(*canonical, error);
  if (!facts) refuse(refusalOf(error));
  if (!facts->isDirectory) refuse("not a folder");
  error = platform.files.readable(*canonical);
  if (error) refuse(refusalOf(error));
  return *canonical;
}

void Session::reportWhyScanned() {
  const std::string& reason = driven->lastRun.notLoaded;
  if (reason.empty() || reason == reportedReason) return;
  reportedReason = reason;
  warn(fmt::format("{}; scanning {} afresh", reason, displayText(driven->_rootPath.get())));
}

/// What the model shows now, with the folder at the path; no scope when the tree does not contain that.
OpenedTree Session::opened(const std::string& path) {
  runs->wait();
  await([this] { return driven->areSettingsStored(); });
  const AppModel::LastRun& run = driven->lastRun;
  if (!run.failure.empty()) {
    throw CommandFailure("cannot scan " + displayText(driven->_rootPath.get()) + ": " + run.failure);
  }
  if (!run.notSaved.empty()) warn("the index was not saved: " + run.notSaved);
  OpenedTree tree{.result = driven->_result.get(),
                  .root = driven->_rootPath.get(),
                  .scope = nullptr,
                  .index = run.index,
                  .scannedAt = static_cast<double>(driven->_indexedAt.get().value_or(0)),
                  .elapsedMs = run.elapsedMs};
  if (const auto below = relativeTo(path, tree.root)) tree.scope = folderAt(tree.result->root, *below);
  return tree;
}

OpenedTree Session::open(const std::string& path) {
  const std::optional<IndexEntry> nearest = IndexCatalog::nearest(platform, folders.index(), path);
  driven->scanIfNeeded(nearest ? nearest->root : path);
  OpenedTree tree = opened(path);
  // On another file system than the root, or made since when nothing was caught up.
  if (!tree.scope && tree.root != path) tree = scan(path);
  if (!tree.scope)
    throw CommandFailure("cannot open " + displayText(path) + ": it was not found by the scan of " +
                         displayText(tree.root));
  driven->_scope.set(tree.scope);
  return tree;
}

OpenedTree Session::scan(const std::string& root) {
  driven->scan(root);
  return opened(root);
}

}  // namespace quon::cli
