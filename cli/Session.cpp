#include "Session.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "Output.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"
#include "live/Refresh.h"
#include "platform/Files.h"
#include "platform_linux/KeyFileDefaults.h"
#include "rows/FolderRows.h"
#include "scan/Walker.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon::cli {
namespace {

std::string reasonOf(const std::error_code& error) {
  if (error == std::errc::no_such_file_or_directory) return "no such folder";
  if (error == std::errc::permission_denied) return "permission denied";
  return error.message();
}

/// An index that cannot be read does not tell its root, but its name is made from it: gives those entries
/// their root that would hold the path, so that such an index is met, told and replaced instead of passed
/// over.
void nameDamagedRoots(std::vector<IndexEntry>& entries, const std::string& indexFolder,
                      const std::string& path) {
  for (IndexEntry& entry : entries) {
    if (entry.status != IndexEntry::Status::unusable) continue;
    std::string root = path;
    while (root != "/" && entry.url != ScanStore::canonicalURL(indexFolder, root)) {
      root.resize(std::max<std::size_t>(root.rfind('/'), 1));
    }
    if (entry.url != ScanStore::canonicalURL(indexFolder, root)) continue;
    entry.root = root;
    entry.status = IndexEntry::Status::live;
  }
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

void tellUnreadable(const OpenedTree& tree) {
  constexpr std::size_t kTold = 5;
  const std::vector<const DirNode*> unreadable = unreadableBelow(*tree.scope);
  if (unreadable.empty()) return;
  const bool one = unreadable.size() == 1;
  warn(fmt::format("{} {} could not be read and {} missing from the totals:", grouped(unreadable.size()),
                   one ? "folder" : "folders", one ? "is" : "are"));
  const std::size_t told = std::min(kTold, unreadable.size());
  for (std::size_t index = 0; index < told; ++index) {
    const std::string path = unreadable[index]->path(pathPrefix(tree.root));
    fmt::print(stderr, "  {}\n", displayText(path.empty() ? "/" : path));
  }
  if (unreadable.size() > told) fmt::print(stderr, "  and {} more\n", grouped(unreadable.size() - told));
}

Session::Session(const Platform& services, Folders places, const Terminal& streams)
    : platform(services), folders(std::move(places)), terminal(streams), runner(services, streams) {}

std::string Session::resolve(const std::string& typed) const {
  std::string path = typed;
  if (path.empty()) path = KeyFileDefaults(folders.config).text("root").value_or(folders.home);
  path = expandTilde(path, folders.home);
  const auto refuse = [&](const std::string& reason) {
    throw CommandFailure("cannot open " + displayText(path) + ": " + reason);
  };
  std::error_code error;
  const auto canonical = platform.files.canonical(path, error);
  if (!canonical) refuse(reasonOf(error));
  const auto facts = platform.files.facts(*canonical, error);
  if (!facts) refuse(reasonOf(error));
  if (!facts->isDirectory) refuse("not a folder");
  error = platform.files.readable(*canonical);
  if (error) refuse(reasonOf(error));
  return *canonical;
}

EventService& Session::events() {
  if (!journal) journal = std::make_unique<LinuxEvents>(folders, log);
  return *journal;
}

OpenedTree Session::load(const IndexEntry& entry, bool catchUp) {
  Loaded loaded = ScanStore::load(entry.url, entry.root, Walker::kMinKeep);
  OpenedTree tree{.result = std::move(loaded.result),
                  .root = entry.root,
                  .scope = nullptr,
                  .index = entry.url,
                  .scannedAt = loaded.scannedAt,
                  .elapsedMs = loaded.scanElapsedMs,
                  .eventId = loaded.lastEventId,
                  .rootDev = loaded.rootDev,
                  .message = "index loaded"};
  if (!catchUp) return tree;
  loaded.result = std::move(tree.result);
  Refresh::Outcome outcome;
  std::tie(tree.result, outcome) =
      Refresh::catchUp(platform, events(), loaded,
                       {.rootPath = entry.root, .indexURL = entry.url, .minKeep = Walker::kMinKeep});
  const std::int64_t changed = outcome.refreshedDirs + outcome.walkedSubtrees + outcome.removedSubtrees;
  tree.message = changed == 0 ? "index loaded — nothing changed since " + localTime(loaded.scannedAt)
                              : fmt::format("index loaded — {} changed folders caught up", changed);
  tree.eventId = outcome.newEventId;
  tree.scannedAt = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  return tree;
}

OpenedTree Session::open(const std::string& path, bool catchUp) {
  std::vector<IndexEntry> saved = IndexCatalog::list(platform, folders.index());
  nameDamagedRoots(saved, folders.index(), path);
  FolderScan::Options options{.root = path};
  if (const IndexEntry* nearest = IndexCatalog::nearest(saved, path)) {
    const auto rescan = [&](const char* reason) {
      warn(fmt::format("{}; scanning {} afresh", reason, displayText(nearest->root)));
      options.root = nearest->root;
    };
    try {
      OpenedTree tree = load(*nearest, catchUp);
      tree.scope = folderAt(tree.result.root, *relativeTo(path, tree.root));
      if (tree.scope) return tree;
      // On another file system than the root, or made since when nothing was caught up.
    } catch (const StoreError& reason) {
      rescan(reason.what());
    } catch (const Refresh::Failure& reason) {
      rescan(reason.what());
    } catch (const std::system_error& reason) {
      rescan(reason.what());
    }
  }
  OpenedTree tree = scan(options);
  tree.scope = folderAt(tree.result.root, *relativeTo(path, tree.root));
  if (!tree.scope) throw CommandFailure("cannot open " + displayText(path) + ": the scan did not meet it");
  return tree;
}

OpenedTree Session::scan(FolderScan::Options options) {
  options.indexDirectory = folders.index();
  FolderScan::Outcome outcome = runner.run(options);
  if (!outcome.notSaved.empty()) warn("the index was not saved: " + outcome.notSaved);
  OpenedTree tree{.result = std::move(outcome.result),
                  .root = options.root,
                  .scope = nullptr,
                  .index = std::move(outcome.index),
                  .scannedAt = outcome.scannedAt,
                  .elapsedMs = outcome.elapsedMs,
                  .eventId = outcome.eventId,
                  .rootDev = outcome.rootDev,
                  .message = ""};
  tree.scope = tree.result.root;
  return tree;
}

}  // namespace quon::cli
