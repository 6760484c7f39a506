#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "base/FunctionRef.h"
#include "map/MapMark.h"
#include "map/MapMode.h"

namespace quon {

/// What a layout was made for: the same stamp and scope, the same marks.
struct Stamp {
  MapMode mode = MapMode::sunburst;
  Metric metric = Metric::logical;
  std::uint64_t version = 0;  ///< of the tree
  double w = 0;               ///< of the canvas
  double h = 0;
  bool dark = false;

  friend bool operator==(const Stamp&, const Stamp&) = default;
};

/// The marks that were computed last, by scope, so that going back and hovering compute nothing. Threads:
/// confined to the view's.
class MarksCache {
 public:
  using Marks = std::vector<MapMark>;

  /// Those of the scope. The reference is valid until the stamp changes or `kScopes` others were asked for.
  const Marks& marks(const RefPtr<DirNode>& scope, const Stamp& current, FunctionRef<Marks()> compute);

  static constexpr std::size_t kScopes = 32;

 private:
  Stamp stamp;
  std::map<RefPtr<DirNode>, Marks> byScope;  // owns the folders, so that no other takes their addresses
  std::vector<RefPtr<DirNode>> order;        // the one asked for last at the end
};

/// What is shown now.
struct MapView {
  MapScope scope;
  MapMode mode = MapMode::sunburst;
  std::uint64_t version = 0;  ///< of the tree
};

/// The marks in the present mode.
const MarksCache::Marks& cachedMarks(MarksCache& cache, const MapView& view, MapSize size,
                                     const Theme& theme);

}  // namespace quon
