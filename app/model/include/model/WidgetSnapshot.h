#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "base/WorkItem.h"
#include "model/LatestJob.h"
#include "model/ModelState.h"

namespace quon {

/// Keeps the widget's snapshot of the shown tree fresh: written when a tree is shown, and two seconds after the last
/// of its changes. Failures are logged, no more. Threads: main only.
class WidgetSnapshot {
 public:
  /// Writes it `delay` seconds from now; of several calls within the delay the last counts. While the tree keeps
  /// changing, it is written every ten seconds all the same.
  void scheduleWidgetSnapshot(std::chrono::duration<double> delay);
  void writeWidgetSnapshot();

 protected:
  explicit WidgetSnapshot(ModelState& model);
  ~WidgetSnapshot();

  /// At the end of each operation.
  void deriveWidgetSnapshot();

 private:
  /// What was written, or will be.
  struct Seen {
    std::uint64_t tree = 0;
    std::uint64_t version = 0;
    Metric metric = Metric::logical;

    friend bool operator==(const Seen&, const Seen&) = default;
  };

  ModelState& state;
  std::shared_ptr<WidgetSnapshot*> self;  // what is scheduled refers to it weakly
  WorkItem widgetSnapshotWork;
  std::optional<std::chrono::duration<double>> waitingSince;
  Seen seen;
  LatestJob<bool> job;
};

}  // namespace quon
