#include "map/Dust.h"

namespace quon {
namespace {

constexpr double kSmallestArc = 0.15;  ///< in points, at the outer edge; less is not seen

class Gaps {
 public:
  Gaps(std::span<const MapMark> sunburst, MapSize size, const Theme& colours)
      : marks(sunburst), rings(Rings::in(size)), theme(colours) {}

  /// What the marks from `first` to `end`, which are those of the rings from this depth on, leave of a range.
  void add(std::size_t first, std::size_t end, int depth, double a0, double a1, Colour firstRing) {
    double at = a0;
    for (std::size_t index = first; index < end; index += 1 + marks[index].below) {
      const MapMark& mark = marks[index];
      addArc(at, mark.a0, depth, firstRing);
      at = mark.a1;
      if (mark.below > 0 || isDivided(mark)) {
        add(index + 1, index + 1 + mark.below, depth + 1, mark.a0, mark.a1,
            depth == 1 ? mark.fill : firstRing);
      }
    }
    addArc(at, a1, depth, firstRing);
  }

  std::vector<DustArc> arcs;

 private:
  /// A folder all of whose rows are too small has a ring that is nothing but dust.
  [[nodiscard]] static bool isDivided(const MapMark& mark) {
    return mark.isFolder() && mark.depth < Rings::kDepth && mark.a1 - mark.a0 > Rings::kSmallestParent;
  }

  void addArc(double a0, double a1, int depth, Colour firstRing) {
    const double outer = rings.innerRadius(depth + 1);
    if ((a1 - a0) * outer < kSmallestArc) return;
    arcs.push_back({theme.dustFill(firstRing), a0, a1, rings.innerRadius(depth), outer});
  }

  std::span<const MapMark> marks;
  const Rings rings;
  const Theme& theme;
};

}  // namespace

std::vector<DustArc> dustOf(std::span<const MapMark> sunburst, const MapScope& scope, MapSize size,
                            const Theme& theme) {
  const bool isEmpty = !scope.node || (scope.metric == Metric::logical ? scope.node->totalLogical
                                                                       : scope.node->totalPhysical) == 0;
  if (isEmpty || !Rings::in(size).hasRoom()) return {};
  Gaps gaps(sunburst, size, theme);
  gaps.add(0, sunburst.size(), 1, Rings::kStart, Rings::kEnd, theme.rest);
  return std::move(gaps.arcs);
}

}  // namespace quon
