#include "model/WidgetSnapshot.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Log.h"
#include "base/MainQueue.h"
#include "platform/Volume.h"
#include "snapshot/SharedStore.h"
#include "snapshot/SnapshotBuilder.h"

namespace quon {
namespace {

using Seconds = std::chrono::duration<double>;
constexpr Seconds kAfterChange{2.0};
constexpr Seconds kLongestWait{10.0};

std::string namesOf(const std::vector<QuonSnapshot::Item>& items) {
  std::vector<std::string_view> names;
  names.reserve(items.size());
  for (const QuonSnapshot::Item& item : items) names.emplace_back(item.name);
  return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace

WidgetSnapshot::WidgetSnapshot(ModelState& model)
    : state(model),
      self(std::make_shared<WidgetSnapshot*>(this)),
      job(
          model, QueueName::snapshot, Job::Reads::treeInParts, [](bool&&) {},
          [this](const std::string& reason) { state.services.log.line("snapshot write failed: " + reason); }) {}

WidgetSnapshot::~WidgetSnapshot() {
  widgetSnapshotWork.cancel();
}

void WidgetSnapshot::scheduleWidgetSnapshot(Seconds delay) {
  if (!state.options.writesSnapshot) return;
  const Seconds now = state.services.steadyClock();
  const bool isPending = widgetSnapshotWork.isPending();
  if (!isPending) waitingSince = now;
  if (isPending && now - *waitingSince + delay > kLongestWait) return;
  widgetSnapshotWork.cancel();
  widgetSnapshotWork = state.services.main.postAfter(delay, [weak = std::weak_ptr(self)] {
    if (const auto alive = weak.lock()) (*alive)->writeWidgetSnapshot();
  });
}

void WidgetSnapshot::writeWidgetSnapshot() {
  const ShownTreeRef tree = state.shownTree();
  widgetSnapshotWork.cancel();
  if (!tree || !state.options.writesSnapshot) return;
  job.start([tree, metric = state._metric.get(), &volumes = state.services.volumes,
             &files = state.services.platform.files, folders = state.services.folders, &log = state.services.log,
             now = state.services.now()](const IsVoid& isVoid) -> std::optional<bool> {
    std::optional<QuonSnapshot> snapshot;
    {
      const TreeGate::Reading reading(*tree->gate);
      if (isVoid()) return std::nullopt;
      snapshot = snapshotOf(tree->rootNode(), tree->root.prefix(), metric, tree->kindOverrides, isVoid);
    }
    if (!snapshot) return std::nullopt;
    complete(*snapshot, volumes.capacity(tree->root.path()), now);
    log.line(fmt::format("widget-write kinds=[{}] folders=[{}]", namesOf(snapshot->topKinds),
                         namesOf(snapshot->topFolders)));
    return SharedStore(files, folders, log).write(*snapshot);
  });
}

void WidgetSnapshot::deriveWidgetSnapshot() {
  const Seen present{state.shownTree() ? state.shownTree()->id : 0, state._version.get(), state._metric.get()};
  // A batch that interrupted the writing has raised the version, and is followed by another.
  const Seen before = std::exchange(seen, present);
  if (present.tree == 0 || present == before) return;
  if (present.tree != before.tree) return writeWidgetSnapshot();
  scheduleWidgetSnapshot(kAfterChange);
}

}  // namespace quon
