#include "model/TrashBin.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "base/Path.h"
#include "model/ScanSession.h"
#include "scan/DirNode.h"

namespace quon {
namespace {

/// None for the rest.
std::optional<TrashItem> itemOf(const Entry& entry) {
  if (const auto* const folder = std::get_if<RefPtr<DirNode>>(&entry.payload)) {
    return TrashItem{entry.path(), {.type = EntryType::directory, .mtime = (*folder)->mtime}};
  }
  if (const auto* const file = std::get_if<Entry::File>(&entry.payload)) {
    return TrashItem{entry.path(),
                     {.type = EntryType::regular, .logical = file->file.logical, .mtime = file->file.mtime}};
  }
  return std::nullopt;
}

}  // namespace

TrashBin::TrashBin(ModelState& model, ScanSession& scanSession)
    : _trashing(model),
      _trashed(model),
      state(model),
      session(scanSession),
      job(
          model, QueueName::trash, Job::Reads::nothing,
          [this](TrashOutcome&& outcome) { finish(std::move(outcome)); },
          [this](const std::string& reason) {
            state._toast.set("trash failed: " + reason);
            startNext();
          }) {}

void TrashBin::trash(const Entry& entry) {
  trash(std::vector<Entry>{entry});
}

void TrashBin::trash(const std::vector<Entry>& entries) {
  std::vector<TrashItem> items;
  for (const Entry& entry : entries) {
    if (std::optional<TrashItem> item = itemOf(entry)) items.push_back(*std::move(item));
  }
  trash(std::move(items));
}

void TrashBin::trash(std::vector<TrashItem> items) {
  if (items.empty()) return;
  state.perform([this, items = std::move(items)] {
    if (!job.isRunning()) *cancelled = false;
    waiting.push_back(items);
    if (!job.isRunning()) startNext();
  });
}

void TrashBin::startNext() {
  if (*cancelled) waiting.clear();
  _trashing.set(!waiting.empty());
  if (waiting.empty()) return;
  const ShownTreeRef& tree = state.shownTree();
  job.start([&platform = state.services.platform, &trash = state.services.trash,
             folders = state.services.folders, root = tree ? tree->root.path() : std::string(),
             items = std::move(waiting.front()),
             stopped = cancelled](const IsVoid& isVoid) -> std::optional<TrashOutcome> {
    return moveToTrash(platform, trash, folders, root, items, [&] { return *stopped || isVoid(); });
  });
  waiting.erase(waiting.begin());
}

void TrashBin::finish(TrashOutcome&& outcome) {
  if (!outcome.moved.empty()) state._selection.set(std::nullopt);
  const std::vector<std::string> changed(outcome.changedFolders.begin(), outcome.changedFolders.end());
  if (!changed.empty() && !session.refreshFolders(changed)) dropFromTree(outcome);
  state._toast.set(outcome.message());
  _trashed.set(std::move(outcome));
  startNext();
}

/// Nothing will bring the tree up to date: it has no index, or that cannot be used any longer. What is too small for a
/// row of its own, and what entered a trash below the root, the next scan finds.
void TrashBin::dropFromTree(const TrashOutcome& outcome) {
  const ShownTreeRef tree = state.shownTree();
  if (!tree) return;
  auto result = std::make_shared<WalkResult>(*tree->result);
  {
    state.interruptReaders();
    const TreeGate::Writing writing(*tree->gate);
    for (const TrashedItem& item : outcome.moved) {
      const std::optional<Entry> entry = tree->entryAt(item.originalPath);
      if (!entry) continue;
      if (const auto* const file = std::get_if<Entry::File>(&entry->payload)) {
        file->container->subtractFile(file->file);
      } else {
        std::get<RefPtr<DirNode>>(entry->payload)->removeFromTree();
      }
      std::erase_if(result->topFiles,
                    [&](const TopFile& file) { return isInside(file.path, item.originalPath); });
    }
  }
  state.showChanged(std::move(result));
}

}  // namespace quon
