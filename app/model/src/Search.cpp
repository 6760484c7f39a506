#include "model/Search.h"

#include <utility>

#include "SearchWork.h"
#include "lenses/Kinds.h"
#include "search/Tokens.h"

namespace quon {
namespace {

constexpr std::chrono::duration<double> kTypingPause{0.12};

constexpr auto kLabelOf = [](std::string_view kindId) -> KindLabel {
  for (const Kinds::Category& category : Kinds::all()) {
    if (category.kind.id == kindId) return {std::string(category.kind.label), category.kind.slot};
  }
  return {std::string(Kinds::other().label), Kinds::other().slot};
};

}  // namespace

Search::Search(ModelState& model)
    : _query(model),
      _chips(model),
      _searchHits(model),
      _searchFound(model),
      _searching(model),
      state(model),
      job(model, QueueName::search, Job::Reads::tree, _searching,
          {.prepare =
               [this] {
                 return searchWork(state, effectiveQuery(), state.options.searchScope,
                                   state.options.searchCap);
               },
           .deliver =
               [this](SearchHits&& hits) {
                 _searchFound.set(hits.found);
                 _searchHits.set(std::move(hits.rows));
               },
           .clear =
               [this] {
                 _searchFound.set(0);
                 _searchHits.set(std::nullopt);
               }}) {}

bool Search::hasQuery() const {
  return !_chips.get().empty() || !tokensOf(_query.get()).empty();
}

std::string Search::effectiveQuery() const {
  return quon::effectiveQuery(field());
}

void Search::absorbChips(bool includePartial) {
  state.perform([this, includePartial] {
    SearchField absorbed = quon::absorbChips(field(), includePartial, kLabelOf);
    _chips.set(std::move(absorbed.chips));
    _query.set(std::move(absorbed.text));
  });
}

void Search::removeChip(const SearchChip& chip) {
  state.perform([this, chip] { _chips.set(withoutChip(field(), chip).chips); });
}

void Search::clearQuery() {
  state.perform([this] {
    _chips.set({});
    _query.set("");
  });
}

void Search::scheduleSearch() {
  state.perform([this] { job.request(); });
}

void Search::deriveSearch() {
  if (!hasQuery() || !state.shownTree()) return job.clear();
  ViewKey key = state.viewKey(effectiveQuery());
  if (!state.options.searchScope) key.scopePath.clear();
  job.follow(key, true, state.options.typingPauses ? kTypingPause : std::chrono::duration<double>{});
}

}  // namespace quon
