#include "model/Catalogue.h"

#include <fmt/format.h>
#include <set>
#include <utility>

#include "base/HumanBytes.h"
#include "trash/Freed.h"

namespace quon {
namespace {

constexpr std::int64_t kFootprintLasts = 60;  // seconds

}  // namespace

Catalogue::Catalogue(ModelState& model)
    : _indexes(model),
      _indexesLoading(model),
      _selfFootprint(model),
      state(model),
      listing(
          model, QueueName::catalogue, Job::Reads::nothing,
          [this](std::vector<IndexEntry>&& entries) {
            _indexesLoading.set(false);
            _indexes.set(std::move(entries));
            state.clear(Problem::Kind::catalogue);
          },
          [this](const std::string& reason) {
            _indexesLoading.set(false);
            state.raise(Problem::Kind::catalogue, "Saved indexes cannot be listed: " + reason);
          }),
      collection(
          model, QueueName::catalogue, Job::Reads::nothing,
          [this](IndexCatalog::Collected&& collected) {
            if (collected.bytes == 0 && collected.indexes == 0) return;
            state._toast.set(fmt::format("reclaimed {} — {} stale {}", humanBytes(collected.bytes),
                                         collected.indexes, collected.indexes == 1 ? "index" : "indexes"));
          },
          [this](const std::string& reason) {
            state.raise(Problem::Kind::catalogue, "Stale indexes cannot be removed: " + reason);
          }),
      footprint(
          model, QueueName::catalogue, Job::Reads::nothing,
          [this](std::uint64_t&& bytes) {
            footprintReadAt = state.services.now();
            _selfFootprint.set(bytes);
          },
          [this](const std::string& reason) {
            state.raise(Problem::Kind::catalogue, "The program's own files cannot be measured: " + reason);
          }) {}

void Catalogue::refreshIndexes() {
  state.perform([this] {
    _indexesLoading.set(true);
    listing.start([&platform = state.services.platform, folder = state.services.folders.index()](
                      const IsVoid&) -> std::optional<std::vector<IndexEntry>> {
      return IndexCatalog::list(platform, folder);
    });
  });
}

void Catalogue::refreshSelfFootprint(bool force) {
  state.perform([this, force] {
    const bool isFresh = footprintReadAt && state.services.now() - *footprintReadAt < kFootprintLasts;
    if (!force && (isFresh || footprint.isRunning())) return;
    footprint.start([&platform = state.services.platform,
                     folders = state.services.folders](const IsVoid& isVoid) -> std::optional<std::uint64_t> {
      Freed own;
      for (const std::string& folder : std::set{folders.data, folders.config, folders.state}) {
        own.add(Freed::of(platform, folder, isVoid));
      }
      return own.total().physical;
    });
  });
}

void Catalogue::collectIndexGarbage() {
  state.perform([this] {
    collection.start([&platform = state.services.platform, folder = state.services.folders.index()](
                         const IsVoid&) -> std::optional<IndexCatalog::Collected> {
      return IndexCatalog::collectGarbage(platform, folder);
    });
  });
}

}  // namespace quon
