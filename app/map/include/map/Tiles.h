#pragma once

#include <span>
#include <vector>

#include "map/Geometry.h"
#include "map/MapMark.h"

namespace quon {

// Rectangles of a treemap: pure functions.

/// How cells lie in each other, in points.
struct TileMeasures {
  static constexpr double kHeader = 20;  ///< height of the band above a folder's own rows
  static constexpr double kInset = 3;    ///< beside and below these rows
  static constexpr double kTopGap = 2;   ///< between cells of the scope
  static constexpr double kGap = 1;      ///< between deeper ones
};

/// The area divided into cells in proportion to the sizes, which are given largest first and are all
/// positive: strips along the shorter side of what is left, each filled as long as that does not make the
/// worst aspect ratio in it worse.
[[nodiscard]] std::vector<MapRect> squarified(const MapRect& area, std::span<const double> sizes);

/// What a cell shows: the cell without the gap at its right and lower edge, which the next one begins after.
[[nodiscard]] MapRect tileOf(const MapRect& cell, int depth);
/// The part of a cell that its own rows are laid out in. Their last gaps lie on its edge.
[[nodiscard]] MapRect contentOf(const MapRect& cell, int depth);
/// The band of a tile that has one.
[[nodiscard]] MapRect headerOf(const MapRect& tile);

/// On the pixels of a screen with so many to a point.
struct PixelRect {
  int x = 0;
  int y = 0;
  int w = 0;
  int h = 0;
};

/// Straight lines take whole pixels: edges are rounded, widths are rounded and at least one pixel.
[[nodiscard]] int pixelEdge(double edge, double scale);
[[nodiscard]] int pixelWidth(double width, double scale);
/// The tile of a cell; gaps are rounded down, at least one pixel.
[[nodiscard]] PixelRect pixelTile(const MapRect& cell, int depth, double scale);

}  // namespace quon
