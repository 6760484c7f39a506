#include <algorithm>
#include <cmath>
#include <utility>

#include "base/Text.h"
#include "map/MapMark.h"
#include "map/TopSlot.h"
#include "rows/FolderRows.h"

namespace quon {
namespace {

constexpr std::size_t kRowsPerRing = 500;
constexpr double kSmallestLabelArc = 13;  ///< at mid-radius; less has no room for a line of text

class Layout {
 public:
  Layout(const MapScope& drawn, MapSize size, const Theme& colours)
      : scope(drawn), rings(Rings::in(size)), theme(colours) {}

  std::vector<MapMark> marks() {
    if (rings.hasRoom()) addRing(scope.node, 1, {Rings::kStart, Rings::kEnd}, 0);
    return std::move(made);
  }

 private:
  struct Range {
    double a0;
    double a1;
    [[nodiscard]] double sweep() const { return a1 - a0; }
  };

  /// The rows of one folder over its angles. Recursion ends with the last ring.
  void addRing(const RefPtr<DirNode>& parent, int depth, Range range, int parentSlot) {
    const std::uint64_t total =
        scope.metric == Metric::logical ? parent->totalLogical : parent->totalPhysical;
    if (total == 0) return;
    const double perByte = range.sweep() / static_cast<double>(total);
    // Rows that are too small for a mark are not even made: there may be 500 of them in each of 1,000
    // folders.
    const auto least = static_cast<std::uint64_t>(std::floor(Rings::kSmallestSweep / perByte));
    const std::vector<Entry> rows = scopeEntries(parent, scope.rootPath, scope.metric, kRowsPerRing, least);
    std::uint64_t before = 0;
    for (std::size_t position = 0; position < rows.size(); ++position) {
      const Entry& row = rows[position];
      const std::uint64_t size = row.size(scope.metric);
      // The rest ends the turn, after the rows that were left out.
      if (std::holds_alternative<Entry::Rest>(row.payload)) before = total - std::min(total, size);
      const double a0 = range.a0 + perByte * static_cast<double>(before);
      const double a1 = std::min(range.a1, range.a0 + perByte * static_cast<double>(before + size));
      before += size;
      if (perByte * static_cast<double>(size) < Rings::kSmallestSweep || a1 <= a0) continue;
      const int slot = depth == 1 ? topSlot(row, position, *scope.node) : parentSlot;
      addMark(row, depth, {a0, a1}, slot);
    }
  }

  void addMark(const Entry& row, int depth, Range range, int slot) {
    const std::size_t at = made.size();
    MapMark& mark = made.emplace_back();
    mark.entry = row;
    mark.fill = theme.fill(slot, depth, mark.isRest());
    mark.a0 = range.a0;
    mark.a1 = range.a1;
    mark.rIn = rings.innerRadius(depth);
    mark.rOut = rings.innerRadius(depth + 1);
    mark.depth = static_cast<std::uint8_t>(depth);
    if ((mark.rIn + mark.rOut) / 2 * range.sweep() >= kSmallestLabelArc) mark.label = displayText(row.name);
    if (!mark.isFolder() || range.sweep() <= Rings::kSmallestParent || depth == Rings::kDepth) return;
    addRing(std::get<RefPtr<DirNode>>(row.payload), depth + 1, range, slot);
    made[at].below = made.size() - at - 1;
  }

  const MapScope& scope;
  const Rings rings;
  const Theme& theme;
  std::vector<MapMark> made;
};

}  // namespace

std::vector<MapMark> sunburstMarks(const MapScope& scope, MapSize size, const Theme& theme) {
  return scope.node ? Layout(scope, size, theme).marks() : std::vector<MapMark>();
}

}  // namespace quon
