#include <utility>

#include "base/Text.h"
#include "map/MapMark.h"
#include "map/Tiles.h"
#include "map/TopSlot.h"
#include "rows/FolderRows.h"

namespace quon {
namespace {

constexpr std::size_t kRowsPerFolder = 60;
constexpr int kDepth = 3;
constexpr double kSmallestArea = 8;  ///< width and height of what is divided
constexpr double kSmallestCell = 1;  ///< of a mark
constexpr MapSize kSmallestLabelled{36, 15};
constexpr MapSize kSmallestParent{80, 60};  ///< of a folder whose rows are drawn in it

bool isLarger(const MapRect& rect, MapSize size) {
  return rect.w > size.w && rect.h > size.h;
}

class Layout {
 public:
  Layout(const MapScope& drawn, const Theme& colours) : scope(drawn), theme(colours) {}

  std::vector<MapMark> marks(MapSize size) {
    addRows(scope.node, 1, {0, 0, size.w, size.h}, 0);
    return std::move(made);
  }

 private:
  /// Recursion ends with the greatest depth.
  void addRows(const RefPtr<DirNode>& parent, int depth, const MapRect& area, int parentSlot) {
    if (!isLarger(area, {kSmallestArea, kSmallestArea})) return;
    std::vector<Entry> rows = scopeEntries(parent, scope.rootPath, scope.metric, kRowsPerFolder);
    std::vector<std::pair<std::size_t, Entry*>> shown;  // by position
    std::vector<double> sizes;
    for (std::size_t position = 0; position < rows.size(); ++position) {
      const std::uint64_t size = rows[position].size(scope.metric);
      if (size == 0) continue;
      shown.emplace_back(position, &rows[position]);
      sizes.push_back(static_cast<double>(size));
    }
    if (sizes.empty()) return;
    const std::vector<MapRect> cells = squarified(area, sizes);
    for (std::size_t at = 0; at < cells.size(); ++at) {
      if (!isLarger(cells[at], {kSmallestCell, kSmallestCell})) continue;
      const auto& [position, row] = shown[at];
      const int slot = depth == 1 ? topSlot(*row, position, *scope.node) : parentSlot;
      addMark(std::move(*row), depth, cells[at], slot);
    }
  }

  void addMark(Entry row, int depth, const MapRect& cell, int slot) {
    const std::size_t at = made.size();
    MapMark& mark = made.emplace_back();
    mark.entry = std::move(row);
    mark.fill = theme.fill(slot, depth, mark.isRest());
    mark.rect = cell;
    mark.isRect = true;
    mark.depth = static_cast<std::uint8_t>(depth);
    if (isLarger(cell, kSmallestLabelled)) mark.label = displayText(mark.entry.name);
    if (!mark.isFolder() || depth == kDepth || !isLarger(cell, kSmallestParent)) return;
    mark.hasHeader = true;
    const RefPtr<DirNode> folder = std::get<RefPtr<DirNode>>(mark.entry.payload);
    addRows(folder, depth + 1, contentOf(cell, depth), slot);
    made[at].below = made.size() - at - 1;
  }

  const MapScope& scope;
  const Theme& theme;
  std::vector<MapMark> made;
};

}  // namespace

std::vector<MapMark> treemapMarks(const MapScope& scope, MapSize size, const Theme& theme) {
  return scope.node ? Layout(scope, theme).marks(size) : std::vector<MapMark>();
}

}  // namespace quon
