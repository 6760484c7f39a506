#pragma once

#include <span>
#include <vector>

#include "map/MapMark.h"

namespace quon {

/// One arc for all that a ring of a sunburst leaves undrawn in a row. Drawn before the marks, without
/// separators; nothing hits it.
struct DustArc {
  Colour fill;
  double a0 = 0;
  double a1 = 0;
  double rIn = 0;
  double rOut = 0;
};

[[nodiscard]] std::vector<DustArc> dustOf(std::span<const MapMark> sunburst, const MapScope& scope,
                                          MapSize size, const Theme& theme);

}  // namespace quon
