#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "map/Colour.h"
#include "map/Geometry.h"
#include "map/Theme.h"
#include "rows/Entry.h"

namespace quon {

/// One piece of the map. A list of marks has each mark before those that lie in it or, in a sunburst, beyond
/// it; these follow it directly, and are counted in `below`.
struct MapMark {
  Entry entry;
  Colour fill;
  std::optional<std::string> label;  ///< fit to be shown, uncut; none where there is no room for any
  double a0 = 0;                     ///< sunburst: start and end, from Rings::kStart on
  double a1 = 0;
  double rIn = 0;  ///< sunburst
  double rOut = 0;
  MapRect rect;  ///< treemap: the cell, without gap and not yet on whole pixels
  bool isRect = false;
  bool hasHeader = false;  ///< treemap: a folder whose own rows are drawn in it, below a band with its label
  std::uint8_t depth = 1;  ///< 1 for the rows of the scope
  std::size_t below = 0;

  [[nodiscard]] bool isFolder() const { return std::holds_alternative<RefPtr<DirNode>>(entry.payload); }
  [[nodiscard]] bool isRest() const { return std::holds_alternative<Entry::Rest>(entry.payload); }
};

/// Which folder is drawn, and how its tree is read.
struct MapScope {
  RefPtr<DirNode> node;  ///< none while there is no tree
  std::string rootPath;  ///< of the tree, as paths are built from it
  Metric metric = Metric::logical;
};

// Threads: any that may read the tree.

/// Up to four rings; see Rings.
[[nodiscard]] std::vector<MapMark> sunburstMarks(const MapScope& scope, MapSize size, const Theme& theme);
/// Squarified cells, up to three deep.
[[nodiscard]] std::vector<MapMark> treemapMarks(const MapScope& scope, MapSize size, const Theme& theme);

/// The mark under a point of the canvas: of a sunburst the slice of the ring, of a treemap the deepest cell.
/// None in the hole, in gaps and outside.
[[nodiscard]] const MapMark* hit(std::span<const MapMark> marks, MapPoint at, MapSize size);
/// Whether the point lies in the middle of a sunburst.
[[nodiscard]] bool isInHole(MapPoint at, MapSize size);

}  // namespace quon
