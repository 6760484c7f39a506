#include "model/lenses/NamesLens.h"

#include <utility>

#include "store/StoreError.h"

namespace quon {
namespace {

void requireIndex(const std::string& url) {
  if (url.empty()) {
    throw StoreError::missing(
        "names are looked up in a saved index, and this scan could not be saved as one");
  }
}

}  // namespace

NamesLens::NamesLens(ModelState& model)
    : _names(model),
      _namesLoading(model),
      _namesError(model),
      _openName(model),
      _filesOfName(model),
      _filesOfNameLoading(model),
      state(model),
      names(model, QueueName::names, Job::Reads::nothing, _namesLoading,
            {.prepare =
                 [this] {
                   return [url = state.shownTree()->indexURL, limit = state.options.namesCap, below = below(),
                           by = by()](const IsVoid&) -> std::optional<std::vector<RepeatedName>> {
                     requireIndex(url);
                     return ScanStore::repeatedNames(url, limit, leastNameTotal, below, by);
                   };
                 },
             .deliver =
                 [this](std::vector<RepeatedName>&& found) {
                   _names.set(std::move(found));
                   _namesError.set(std::nullopt);
                 },
             .clear =
                 [this] {
                   _names.set(std::nullopt);
                   _namesError.set(std::nullopt);
                 },
             .fail =
                 [this](const std::string& reason) {
                   _names.set(std::nullopt);
                   _namesError.set(reason);
                 }}),
      files(model, QueueName::names, Job::Reads::nothing, _filesOfNameLoading,
            {.prepare =
                 [this] {
                   return [url = state.shownTree()->indexURL, root = state.shownTree()->root,
                           limit = state.options.namedFilesCap, below = below(),
                           name = *_openName.get()](const IsVoid&) -> std::optional<FilesOfName> {
                     requireIndex(url);
                     return FilesOfName{name, ScanStore::paths(name, url, root, limit, below)};
                   };
                 },
             .deliver =
                 [this](FilesOfName&& found) {
                   _filesOfName.set(std::make_shared<const FilesOfName>(std::move(found)));
                   _namesError.set(std::nullopt);
                 },
             .clear = [this] { _filesOfName.set(nullptr); },
             .fail =
                 [this](const std::string& reason) {
                   _filesOfName.set(nullptr);
                   _namesError.set(reason);
                 }}) {}

void NamesLens::scheduleNamesScan() {
  state.perform([this] { names.request(); });
}

/// The folder that is covered, as a path below the root.
std::string NamesLens::below() const {
  if (!state.options.searchScope) return {};
  return std::string(state.shownTree()->root.relative(state.scopePath()).value_or(""));
}

NamesBy NamesLens::by() const {
  const bool isLogical = state.options.namesByMetric && state._metric.get() == Metric::logical;
  return isLogical ? NamesBy::logical : NamesBy::physical;
}

void NamesLens::deriveLens(bool isShown) {
  ViewKey key = state.viewKey();
  // The files of a name stand by size on disk whatever the metric.
  key.metric = by() == NamesBy::logical ? Metric::logical : Metric::physical;
  if (!state.options.searchScope) key.scopePath.clear();
  // A new scan voids the names: its index takes the place of the one that they were read from.
  if (state.isScanning()) key.tree = 0;
  names.follow(key, isShown);
  if (!_openName.get()) return files.clear();
  if (_filesOfName.get() && _filesOfName.get()->name != *_openName.get()) _filesOfName.set(nullptr);
  key.further = *_openName.get();
  files.follow(key, isShown);
}

}  // namespace quon
