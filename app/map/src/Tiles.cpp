#include "map/Tiles.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace quon {
namespace {

double gapAt(int depth) {
  return depth == 1 ? TileMeasures::kTopGap : TileMeasures::kGap;
}

/// The larger of width to height and height to width of the worst cell of a strip: that is the largest or the
/// smallest. `side` is the strip's length, and sizes are areas.
double worstAspect(double largest, double smallest, double sum, double side) {
  const double square = side * side;
  const double squareOfSum = sum * sum;
  return std::max(square * largest / squareOfSum, squareOfSum / (square * smallest));
}

/// Cells of one strip, at the left of the area if it is wide, else at its top. Returns what is left.
MapRect place(MapRect area, std::span<const double> strip, double sum, std::vector<MapRect>& cells) {
  const bool isWide = area.w >= area.h;
  const double side = isWide ? area.h : area.w;
  const double thickness = std::min(sum / side, isWide ? area.w : area.h);
  double before = 0;
  for (const double size : strip) {
    const double from = side * (before / sum);
    before += size;
    const double length = side * (before / sum) - from;
    cells.push_back(isWide ? MapRect{area.x, area.y + from, thickness, length}
                           : MapRect{area.x + from, area.y, length, thickness});
  }
  if (isWide) return {area.x + thickness, area.y, area.w - thickness, area.h};
  return {area.x, area.y + thickness, area.w, area.h - thickness};
}

}  // namespace

std::vector<MapRect> squarified(const MapRect& area, std::span<const double> sizes) {
  std::vector<MapRect> cells;
  cells.reserve(sizes.size());
  const double perByte = area.w * area.h / std::accumulate(sizes.begin(), sizes.end(), 0.0);
  std::vector<double> areas;
  areas.reserve(sizes.size());
  for (const double size : sizes) areas.push_back(size * perByte);
  MapRect left = area;
  for (std::size_t first = 0; first < areas.size();) {
    const double side = std::min(left.w, left.h);
    double sum = areas[first];
    double largest = sum;
    double smallest = sum;
    double worst = worstAspect(largest, smallest, sum, side);
    std::size_t end = first + 1;
    for (; end < areas.size(); ++end) {
      const double next = areas[end];
      const double widened = worstAspect(std::max(largest, next), std::min(smallest, next), sum + next, side);
      if (widened > worst) break;
      largest = std::max(largest, next);
      smallest = std::min(smallest, next);
      sum += next;
      worst = widened;
    }
    left = place(left, std::span(areas).subspan(first, end - first), sum, cells);
    first = end;
  }
  return cells;
}

MapRect tileOf(const MapRect& cell, int depth) {
  const double gap = gapAt(depth);
  return {cell.x, cell.y, std::max(0.0, cell.w - gap), std::max(0.0, cell.h - gap)};
}

MapRect contentOf(const MapRect& cell, int depth) {
  const MapRect tile = tileOf(cell, depth);
  constexpr double kInset = TileMeasures::kInset;
  return {tile.x + kInset, tile.y + TileMeasures::kHeader, tile.w - 2 * kInset + TileMeasures::kGap,
          tile.h - TileMeasures::kHeader - kInset + TileMeasures::kGap};
}

MapRect headerOf(const MapRect& tile) {
  return {tile.x, tile.y, tile.w, TileMeasures::kHeader};
}

int pixelEdge(double edge, double scale) {
  return static_cast<int>(std::lround(edge * scale));
}

int pixelWidth(double width, double scale) {
  return std::max(1, pixelEdge(width, scale));
}

PixelRect pixelTile(const MapRect& cell, int depth, double scale) {
  const int gap = std::max(1, static_cast<int>(std::floor(gapAt(depth) * scale)));
  const int x = pixelEdge(cell.x, scale);
  const int y = pixelEdge(cell.y, scale);
  return {x, y, std::max(1, pixelEdge(cell.right(), scale) - gap - x),
          std::max(1, pixelEdge(cell.bottom(), scale) - gap - y)};
}

}  // namespace quon
