#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "model/FollowingJob.h"
#include "model/ModelState.h"
#include "rows/Entry.h"
#include "search/SearchChip.h"
#include "search/TreeSearch.h"

namespace quon {

/// The search field: its text and chips, and what was found. Searches again whenever the query, the tree or
/// the metric changes. Threads: main only.
class Search {
 public:
  Observed<std::string> _query;  ///< views set
  Observed<std::vector<SearchChip>> _chips;
  Observed<std::optional<std::vector<Entry>>> _searchHits;  ///< the largest of what was found
  Observed<std::size_t> _searchFound;                       ///< how many were
  Observed<bool> _searching;

  [[nodiscard]] bool hasQuery() const;
  [[nodiscard]] std::string effectiveQuery() const;
  void absorbChips(bool includePartial);
  void removeChip(const SearchChip& chip);
  void clearQuery();
  /// Searches again, though nothing changed.
  void scheduleSearch();

 protected:
  explicit Search(ModelState& model);
  void deriveSearch();

 private:
  [[nodiscard]] SearchField field() const { return {_query.get(), _chips.get()}; }

  ModelState& state;
  FollowingJob<SearchHits> job;
};

}  // namespace quon
