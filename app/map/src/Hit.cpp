#include <cmath>
#include <numbers>

#include "map/MapMark.h"

namespace quon {
namespace {

/// Descends from mark to mark that contains the point's angle; only those beyond it can be the next. At most
/// 500 marks a ring are visited.
const MapMark* wedgeAt(std::span<const MapMark> marks, MapPoint at, MapSize size) {
  const Rings rings = Rings::in(size);
  const double x = at.x - rings.centre.x;
  const double y = at.y - rings.centre.y;
  const double radius = std::hypot(x, y);
  double angle = std::atan2(y, x);
  if (angle < Rings::kStart) angle += 2 * std::numbers::pi;
  for (std::size_t index = 0, end = marks.size(); index < end;) {
    const MapMark& mark = marks[index];
    if (angle < mark.a0 || angle >= mark.a1) {
      index += 1 + mark.below;
    } else if (radius < mark.rOut) {
      return radius >= mark.rIn ? &mark : nullptr;
    } else {
      end = index + 1 + mark.below;
      ++index;
    }
  }
  return nullptr;
}

const MapMark* tileAt(std::span<const MapMark> marks, MapPoint at) {
  const MapMark* deepest = nullptr;
  for (std::size_t index = 0, end = marks.size(); index < end;) {
    const MapMark& mark = marks[index];
    if (!mark.rect.contains(at)) {
      index += 1 + mark.below;
    } else {
      deepest = &mark;
      end = index + 1 + mark.below;
      ++index;
    }
  }
  return deepest;
}

}  // namespace

const MapMark* hit(std::span<const MapMark> marks, MapPoint at, MapSize size) {
  if (marks.empty()) return nullptr;
  return marks.front().isRect ? tileAt(marks, at) : wedgeAt(marks, at, size);
}

bool isInHole(MapPoint at, MapSize size) {
  const Rings rings = Rings::in(size);
  return std::hypot(at.x - rings.centre.x, at.y - rings.centre.y) < rings.hole;
}

}  // namespace quon
