#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "map/Colour.h"
#include "map/Theme.h"

namespace quon {

/// The marks that stand out, by their index.
struct MarkedMarks {
  std::optional<std::size_t> hovered;
  std::optional<std::size_t> selected;
  std::optional<std::size_t> focused;  ///< where the keyboard is; none unless a key was pressed last
};

/// A line along the inner edge of a mark.
struct MarkOutline {
  std::size_t mark = 0;
  double width = 0;  ///< in points, from the mark's edge inwards
  Colour colour;
};

/// In the order of drawing, after all marks. The keyboard's comes last, on an edge that separates it from any
/// fill.
[[nodiscard]] std::vector<MarkOutline> outlinesOf(const MarkedMarks& marked, const Theme& theme);

}  // namespace quon
