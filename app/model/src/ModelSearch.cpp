// Searches: of the search field and of the command bar. Both wait a moment for the next key, run on the
// search queue as readers of the tree, and are dropped, or stopped, once a newer one was begun.
#include <chrono>
#include <functional>
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
  RefPtr<DirNode> root;
  std::string rootPath;
  Metric metric;
  std::int64_t now;
  KindOverrides overrides;
  std::shared_ptr<TreeGate> gate;
  std::shared_ptr<GenerationBox> box;
  std::int64_t generation;

  [[nodiscard]] bool isVoid() const { return !box->isCurrent(generation); }

  /// None when it was stopped.
  [[nodiscard]] std::optional<SearchHits> run(std::size_t cap) const {
    const TokenQuery query = TokenQuery::parse(text, now);
    if (query.isEmpty() || !root) return SearchHits();
    const auto kindOf = [&](const DirNode& folder, std::string_view name) {
      // What the content told comes first.
      if (const auto found = overrides.find(&folder); found != overrides.end()) {
        const auto kind = found->second.find(std::string(name));
        if (kind != found->second.end()) return kind->second->id;
      }
      return Kinds::of(name).id;
    };
    const TreeGate::Reading reading(*gate);
    return search(
        query, root, rootPath, metric, kindOf, [&] { return isVoid(); }, cap);
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

void AppModel::dropHits() {
  searchGen->advance();
  _searchHits.set(std::nullopt);
  _searchFound.set(0);
  _searching.set(false);
}

void AppModel::scheduleSearch() {
  if (!hasQuery()) return dropHits();
  _searching.set(true);
  searchInBackground(effectiveQuery(), conduct.ofScope, conduct.searchCap, kTypingPause, searchGen,
                     [this](std::optional<SearchHits>& hits) {
                       _searchFound.set(hits ? hits->found : 0);
                       _searchHits.set(hits ? std::optional(std::move(hits->rows)) : std::nullopt);
                       _searching.set(false);
                     });
}

void AppModel::schedulePaletteSearch(const std::string& text) {
  const auto tokens = tokensOf(text);
  lastPaletteText = tokens.empty()
                        ? std::string()
                        : std::string(tokens.front().data(), tokens.back().data() + tokens.back().size());
  if (lastPaletteText.empty()) {
    paletteGen->advance();
    _paletteHits.set({});
    _paletteSearching.set(false);
    return;
  }
  _paletteSearching.set(true);
  searchInBackground(lastPaletteText, false, paletteCap, kPalettePause, paletteGen,
                     [this](std::optional<SearchHits>& hits) {
                       if (hits) _paletteHits.set(std::move(hits->rows));
                       _paletteSearching.set(false);
                     });
}

/// Voids what the box counts, and searches after the pause; `take` is called on the main thread, while the
/// model lives and unless a newer search was begun.
void AppModel::searchInBackground(std::string text, bool ofScope, std::size_t cap,
                                  std::chrono::duration<double> pause,
                                  const std::shared_ptr<GenerationBox>& box,
                                  std::function<void(std::optional<SearchHits>&)> take) {
  const RefPtr<DirNode> whole = _result.get() ? _result.get()->root : RefPtr<DirNode>();
  Wanted wanted{.text = std::move(text),
                .root = ofScope ? _scope.get() : whole,
                .rootPath = std::string(treeRoot()),
                .metric = _metric.get(),
                .now = services.now(),
                .overrides = kindOverrides,
                .gate = treeGate,
                .box = box,
                .generation = box->advance()};
  services.searches.postAfter(
      conduct.typingPauses ? pause : kNoPause,
      [wanted = std::move(wanted), cap, take = std::move(take), weak = Self(self), &main = services.main] {
        if (wanted.isVoid()) return;
        auto hits = std::make_shared<std::optional<SearchHits>>(wanted.run(cap));
        main.post([weak, box = wanted.box, generation = wanted.generation, hits, take] {
          if (weak.lock() && box->isCurrent(generation)) take(*hits);
        });
      });
}

}  // namespace quon
