#pragma once

#include <algorithm>
#include <numbers>

namespace quon {

// Lengths are points, that is logical pixels, with y downwards; angles are radians, clockwise on screen, from
// three o'clock. All of it is pure, so that a layout can be computed for any moment of an animation.

struct MapSize {
  double w = 0;
  double h = 0;

  friend bool operator==(const MapSize&, const MapSize&) = default;
};

struct MapPoint {
  double x = 0;
  double y = 0;
};

struct MapRect {
  double x = 0;
  double y = 0;
  double w = 0;
  double h = 0;

  [[nodiscard]] double right() const { return x + w; }
  [[nodiscard]] double bottom() const { return y + h; }
  /// Half open: of two neighbours exactly one contains a point of their common edge.
  [[nodiscard]] bool contains(MapPoint point) const {
    return point.x >= x && point.x < right() && point.y >= y && point.y < bottom();
  }

  friend bool operator==(const MapRect&, const MapRect&) = default;
};

/// The rings of a sunburst in a canvas, about its middle.
struct Rings {
  static constexpr int kDepth = 4;                         ///< rings at most
  static constexpr double kSmallestSweep = 0.006;          ///< of a mark
  static constexpr double kSmallestParent = 0.02;          ///< of a mark whose own rows are drawn
  static constexpr double kStart = -std::numbers::pi / 2;  ///< twelve o'clock
  static constexpr double kEnd = 3 * std::numbers::pi / 2;

  MapPoint centre;
  double outer = 0;      ///< R; not positive where the canvas has no room for a ring
  double hole = 0;       ///< r0
  double thickness = 0;  ///< t

  [[nodiscard]] static Rings in(MapSize size) {
    constexpr double kMargin = 14;
    constexpr double kHoleShare = 0.22;
    constexpr double kSmallestHole = 46;
    constexpr double kLargestHole = 110;
    Rings rings;
    rings.centre = {size.w / 2, size.h / 2};
    rings.outer = std::min(size.w, size.h) * 0.5 - kMargin;
    rings.hole = std::clamp(rings.outer * kHoleShare, kSmallestHole, kLargestHole);
    rings.thickness = (rings.outer - rings.hole) / kDepth;
    return rings;
  }

  [[nodiscard]] bool hasRoom() const { return thickness > 0; }
  [[nodiscard]] double innerRadius(int depth) const { return hole + thickness * (depth - 1); }
};

}  // namespace quon
