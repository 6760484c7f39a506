#include "trash/TrashMove.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>
#include <system_error>

#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/Files.h"
#include "trash/TrashRules.h"

namespace quon {
namespace {

std::string countedItems(std::size_t count) {
  return fmt::format("{} {}", grouped(count), count == 1 ? "item" : "items");
}

/// The trash may have been made just now, or a folder that is shared by the trashes of all users.
void addTrash(const FileService& files, const std::string& path, PathSet& changed) {
  std::error_code error;
  const auto trash = files.canonical(path, error);
  if (!trash) return;  // gone again
  changed.emplace(parentPath(parentPath(*trash)));
  changed.emplace(parentPath(*trash));
  changed.insert(*trash);
  changed.insert(joinPath(*trash, "files"));
  changed.insert(joinPath(*trash, "info"));
}

}  // namespace

bool isWithinAny(const PathSet& folders, std::string_view path) {
  for (std::string_view above = parentPath(path); above.size() > 1; above = parentPath(above)) {
    if (folders.contains(above)) return true;
  }
  return false;
}

std::string TrashOutcome::message() const {
  if (moved.empty()) {
    if (failed.empty()) return untried == 0 ? "" : "nothing was moved, as it was cancelled";
    if (failed.size() == 1) return "trash failed: " + failed.front().reason;
    return fmt::format("trash failed — {} could not be moved", countedItems(failed.size()));
  }
  const std::string what = moved.size() == 1 ? displayText(lastComponent(moved.front().originalPath))
                                             : countedItems(moved.size());
  std::string text = fmt::format("trashed {} — {} freed once the Trash is emptied", what, humanBytes(freed.physical));
  if (freed.keptByLinks > 0) text += ", not counting what has other hard links";
  if (freed.unreadable > 0) text += ", not counting folders that cannot be read";
  if (!failed.empty()) text += fmt::format(" — {} failed to be moved", grouped(failed.size()));
  if (untried > 0) text += fmt::format(" — cancelled before {} more", countedItems(untried));
  return text;
}

TrashOutcome moveToTrash(const Platform& platform, TrashService& trash, const Folders& folders,
                         const std::string& root, const std::vector<TrashItem>& items,
                         FunctionRef<bool()> cancelled) {
  // What contains others comes before them.
  std::vector<TrashItem> sorted = items;
  std::ranges::stable_sort(sorted, {}, [](const TrashItem& item) { return item.path.size(); });
  TrashOutcome outcome;
  Freed freed;
  const TrashRules rules(platform, folders);
  PathSet tried;
  PathSet moved;
  for (const TrashItem& item : sorted) {
    if (!tried.insert(item.path).second || isWithinAny(moved, item.path)) continue;
    if (cancelled()) {
      ++outcome.untried;
      continue;
    }
    const auto fail = [&](const char* reason) {
      outcome.failed.push_back({item.path, reason});
      outcome.changedFolders.emplace(parentPath(item.path));  // it may have gone and come back
    };
    try {
      const std::string refusal = rules.refusalOf(item.path, root);
      if (!refusal.empty()) {
        outcome.failed.push_back({item.path, refusal});
        continue;
      }
      const Freed one = Freed::of(platform, item.path, cancelled);
      if (cancelled()) {
        ++outcome.untried;
        continue;
      }
      outcome.moved.push_back(trash.moveToTrash(item.path, item.expected));
      outcome.changedFolders.emplace(parentPath(item.path));
      const std::string& arrived = outcome.moved.back().path;
      if (!arrived.empty()) addTrash(platform.files, std::string(parentPath(parentPath(arrived))), outcome.changedFolders);
      freed.add(one);
      moved.insert(item.path);
    } catch (const TrashFailure& failure) {
      fail(failure.what());
      if (!failure.touched.empty()) addTrash(platform.files, failure.touched, outcome.changedFolders);
    } catch (const std::exception& failure) {  // whatever it is, what was moved before is to be told
      fail(failure.what());
    }
  }
  outcome.freed = freed.total();
  return outcome;
}

}  // namespace quon
