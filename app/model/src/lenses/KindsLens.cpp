#include "model/lenses/KindsLens.h"

#include <utility>

namespace quon {

KindsLens::KindsLens(ModelState& model)
    : _kinds(model),
      _kindsScanning(model),
      state(model),
      job(model, QueueName::lenses, Job::Reads::tree, _kindsScanning,
          {.prepare =
               [this] {
                 return [tree = state.shownTree(), path = state.scopePath(), metric = state._metric.get()](
                            const IsVoid& isVoid) -> std::optional<Kinds::Aggregate> {
                   const RefPtr<DirNode> scope = tree->folderAt(path);
                   if (!scope) return Kinds::Aggregate();
                   return Kinds::aggregate(scope, tree->root.prefix(), metric, tree->kindOverrides, isVoid);
                 };
               },
           .deliver = [this](Kinds::Aggregate&& kinds) { _kinds.set(std::move(kinds)); },
           .clear = [this] { _kinds.set(std::nullopt); }}) {}

void KindsLens::deriveLens(bool isShown) {
  job.follow(state.viewKey(), isShown);
}

}  // namespace quon
