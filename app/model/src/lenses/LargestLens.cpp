#include "model/lenses/LargestLens.h"

#include <utility>

namespace quon {

LargestLens::LargestLens(ModelState& model)
    : _largest(model),
      _largestFound(model),
      _largestScanning(model),
      state(model),
      job(model, QueueName::lenses, Job::Reads::tree, _largestScanning,
          {.prepare =
               [this] {
                 return
                     [tree = state.shownTree(), path = state.scopePath(), metric = state._metric.get(),
                      cap = state.options.largestCap](const IsVoid& isVoid) -> std::optional<LargestFiles> {
                       const RefPtr<DirNode> scope = tree->folderAt(path);
                       if (!scope) return LargestFiles();
                       return largestFiles(scope, tree->root.prefix(), metric, cap, isVoid);
                     };
               },
           .deliver =
               [this](LargestFiles&& files) {
                 _largest.set(std::move(files.rows));
                 _largestFound.set(files.found);
               },
           .clear =
               [this] {
                 _largest.set(std::nullopt);
                 _largestFound.set(0);
               }}) {}

void LargestLens::deriveLens(bool isShown) {
  job.follow(state.viewKey(), isShown);
}

}  // namespace quon
