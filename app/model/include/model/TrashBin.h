#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "model/LatestJob.h"
#include "model/ModelState.h"
#include "rows/Entry.h"
#include "trash/TrashMove.h"

namespace quon {

class ScanSession;

/// Moves items to the desktop's trash: nothing else in the program changes anything below a scanned folder. What
/// was moved leaves the tree, and what lies in the trash enters it where the trash was scanned too, as one batch
/// of live updates that is not waited for.
///
/// Threads: main only. Items are moved on a queue of their own, call after call; at the model's end none is begun
/// any more.
class TrashBin {
 public:
  /// Items are on their way.
  Observed<bool> _trashing;
  /// What became of the last call, with the toast that tells it; none before the first.
  Observed<std::optional<TrashOutcome>> _trashed;

  /// Moves what the row stands for, if it still is what the row shows. Nothing for the rest.
  void trash(const Entry& entry);
  /// Several, of which those that lie in others are moved with them.
  void trash(const std::vector<Entry>& entries);
  /// Items that need not be in the shown tree.
  void trash(std::vector<TrashItem> items);
  /// Moves nothing more than what is being moved just now; `_trashed` tells what was. Threads: any.
  void cancelTrash() { *cancelled = true; }

 protected:
  TrashBin(ModelState& model, ScanSession& scanSession);

 private:
  void startNext();
  void finish(TrashOutcome&& outcome);
  void dropFromTree(const TrashOutcome& outcome);

  ModelState& state;
  ScanSession& session;
  std::shared_ptr<std::atomic<bool>> cancelled = std::make_shared<std::atomic<bool>>(false);
  std::vector<std::vector<TrashItem>> waiting;
  LatestJob<TrashOutcome> job;
};

}  // namespace quon
