#include "model/lenses/UntouchedLens.h"

#include <string>
#include <utility>

#include "lenses/Age.h"

namespace quon {
namespace {

constexpr std::int64_t kYear = 31'536'000;  // seconds

}  // namespace

UntouchedLens::UntouchedLens(ModelState& model)
    : _ageCutoff(model, kYear),
      _ageHits(model),
      _ageScanning(model),
      state(model),
      job(model, QueueName::lenses, Job::Reads::tree, _ageScanning,
          {.prepare =
               [this] {
                 return [tree = state.shownTree(), path = state.scopePath(),
                         cutoff = state.services.now() - _ageCutoff.get(), metric = state._metric.get()](
                            const IsVoid& isVoid) -> std::optional<std::vector<Entry>> {
                   const RefPtr<DirNode> scope = tree->folderAt(path);
                   if (!scope) return std::vector<Entry>();
                   return ageScan(scope, tree->root.prefix(), cutoff, metric, isVoid);
                 };
               },
           .deliver = [this](std::vector<Entry>&& hits) { _ageHits.set(std::move(hits)); },
           .clear = [this] { _ageHits.set(std::nullopt); }}) {}

void UntouchedLens::scheduleAgeScan() {
  state.perform([this] { job.request(); });
}

void UntouchedLens::deriveLens(bool isShown) {
  job.follow(state.viewKey(std::to_string(_ageCutoff.get())), isShown);
}

}  // namespace quon
