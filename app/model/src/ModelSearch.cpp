// Searches: of the search field and of the command bar. Both wait a moment for the next key, run on the
// search queue as readers of the tree, and are dropped, or stopped, once a newer one was begun.
#include <chrono>
#include <utility>

#include "base/BackgroundQueue.h"
#include "model/AppModel.h"
#include "search/TokenQuery.h"
#include "search/Tokens.h"
#include "search/TreeSearch.h"

namespace quon {
namespace {

constexpr std::chrono::duration<double> kNoPause{0.0};
constexpr std::chrono::duration<double> kTypingPause{0.12};
constexpr std::chrono::duration<double> kPalettePause{0.08};

constexpr auto kLabelOf = [](std::string_view kindId) -> KindLabel {
  for (const Kinds::Category& category : Kinds::all()) {
    if (category.kind.id == kindId) return {std::string(category.kind.label), category.kind.slot};
  }
  return {std::string(Kinds::other().label), Kinds::other().slot};
};

/// What a search needs of the model, taken on the main thread.
struct Wanted {
  std::string text;
  std::shared_ptr<const WalkResult> result;
  std::string rootPath;
  Metric metric;
  std::int64_t now;
  KindOverrides overrides;
  std::shared_ptr<TreeGate> gate;
  std::shared_ptr<GenerationBox> box;
  std::int64_t generation;

  [[nodiscard]] bool isVoid() const { return !box->isCurrent(generation); }

  /// At most so many rows, largest first; none when it was stopped.
  [[nodiscard]] std::optional<std::vector<Entry>> run(std::optional<std::size_t> cap) const {
    const TokenQuery query = TokenQuery::parse(text, now);
    if (query.isEmpty() || !result) return std::vector<Entry>();
    const auto kindOf = [&](const DirNode& folder, std::string_view name) {
      // What the content told comes first.
      if (const auto found = overrides.find(&folder); found != overrides.end()) {
        const auto kind = found->second.find(std::string(name));
        if (kind != found->second.end()) return kind->second->id;
      }
      return Kinds::of(name).id;
    };
    const auto stopped = [&] { return isVoid(); };
    const TreeGate::Reading reading(*gate);
    if (cap) return largestMatches(query, result->root, rootPath, metric, kindOf, stopped, *cap);
    auto hits = search(query, result->root, rootPath, metric, kindOf, stopped);
    if (hits) sortBySize(*hits, metric);
    return hits;
  }
};

}  // namespace

bool AppModel::hasQuery() const {
  return !_chips.get().empty() || !tokensOf(_query.get()).empty();
}

std::string AppModel::effectiveQuery() const {
  return quon::effectiveQuery({_query.get(), _chips.get()});
}

void AppModel::absorbChips(bool includePartial) {
  SearchField field = quon::absorbChips({_query.get(), _chips.get()}, includePartial, kLabelOf);
  _chips.set(std::move(field.chips));
  _query.set(std::move(field.text));
  scheduleSearch();
}

void AppModel::removeChip(const SearchChip& chip) {
  _chips.set(withoutChip({_query.get(), _chips.get()}, chip).chips);
  scheduleSearch();
}

void AppModel::clearQuery() {
  _chips.set({});
  _query.set("");
  scheduleSearch();
}

void AppModel::scheduleSearch() {
  const std::int64_t generation = searchGen->advance();
  if (!hasQuery()) {
    _searchHits.set(std::nullopt);
    _searching.set(false);
    return;
  }
  _searching.set(true);
  Wanted wanted{effectiveQuery(), _result.get(),  std::string(treeRoot()),
                _metric.get(),    services.now(), kindOverrides,
                treeGate,         searchGen,      generation};
  services.searches.postAfter(
      conduct.typingPauses ? kTypingPause : kNoPause,
      [wanted = std::move(wanted), weak = Self(self), &main = services.main] {
        if (wanted.isVoid()) return;
        auto hits = std::make_shared<std::optional<std::vector<Entry>>>(wanted.run(std::nullopt));
        main.post([weak, generation = wanted.generation, hits] {
          const auto alive = weak.lock();
          if (!alive || !(*alive)->searchGen->isCurrent(generation)) return;
          (*alive)->_searchHits.set(std::move(*hits));
          (*alive)->_searching.set(false);
        });
      });
}

void AppModel::schedulePaletteSearch(const std::string& text) {
  const auto tokens = tokensOf(text);
  lastPaletteText = tokens.empty()
                        ? std::string()
                        : std::string(tokens.front().data(), tokens.back().data() + tokens.back().size());
  const std::int64_t generation = paletteGen->advance();
  if (lastPaletteText.empty()) {
    _paletteHits.set({});
    _paletteSearching.set(false);
    return;
  }
  _paletteSearching.set(true);
  Wanted wanted{lastPaletteText, _result.get(),  std::string(treeRoot()),
                _metric.get(),   services.now(), kindOverrides,
                treeGate,        paletteGen,     generation};
  services.searches.postAfter(
      conduct.typingPauses ? kPalettePause : kNoPause,
      [wanted = std::move(wanted), weak = Self(self), &main = services.main] {
        if (wanted.isVoid()) return;
        auto hits = std::make_shared<std::optional<std::vector<Entry>>>(wanted.run(paletteCap));
        main.post([weak, generation = wanted.generation, hits] {
          const auto alive = weak.lock();
          if (!alive || !(*alive)->paletteGen->isCurrent(generation)) return;
          if (*hits) (*alive)->_paletteHits.set(std::move(**hits));
          (*alive)->_paletteSearching.set(false);
        });
      });
}

}  // namespace quon
