#include "map/Outlines.h"

namespace quon {

std::vector<MarkOutline> outlinesOf(const MarkedMarks& marked, const Theme& theme) {
  constexpr double kHovered = 1.5;
  constexpr double kChosen = 2.5;
  constexpr double kEdge = 2;
  std::vector<MarkOutline> outlines;
  if (marked.hovered) outlines.push_back({*marked.hovered, kHovered, theme.ink});
  if (marked.selected) outlines.push_back({*marked.selected, kChosen, theme.ink});
  if (marked.focused) {
    outlines.push_back({*marked.focused, kChosen + kEdge, theme.ground});
    outlines.push_back({*marked.focused, kChosen, theme.accent});
  }
  return outlines;
}

}  // namespace quon
