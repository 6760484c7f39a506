#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "model/ModelState.h"
#include "rows/Entry.h"

namespace quon {

class Search;

/// How the user moves about in the shown tree, and the rows of where they are. Threads: main only.
class Navigator {
 public:
  static constexpr std::size_t childCap = 500;  ///< rows of a listing before the rest

  /// The rows of the scope, or what the search found. Valid until the model changes.
  [[nodiscard]] const std::vector<Entry>& entries();
  [[nodiscard]] std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::size_t cap) const;
  /// The row of a full path.
  [[nodiscard]] std::optional<Entry> entryFor(const std::string& path) const;
  /// The colour slot of the folder in the map of the scope: see map/TopSlot.h.
  [[nodiscard]] std::optional<int> topSlot(const DirNode& folder) const;
  /// Goes to a folder, or to a file in its folder. A folder that was taken out of the tree since the row was
  /// made is looked for at its path; the toast reports that nothing is there any more.
  void jump(const Entry& entry);
  void goUp();
  void copyPath(const Entry& entry);

 protected:
  Navigator(ModelState& model, Search& searchField);

 private:
  ModelState& state;
  Search& search;
  struct EntriesCache {
    ViewKey key;
    std::vector<Entry> rows;
  };
  std::optional<EntriesCache> entriesCache;
};

}  // namespace quon
