#include "Legend.h"

#include <algorithm>
#include <fmt/format.h>
#include <string>
#include <vector>

#include "base/HumanBytes.h"
#include "base/Text.h"
#include "map/Labels.h"
#include "map/TopSlot.h"
#include "rows/FolderRows.h"

namespace quon {
namespace {

constexpr double kHead = 26;
constexpr double kRow = 24;
constexpr MapSize kTick{3, 16};
constexpr double kBesideTick = 9;
constexpr double kNumber = 44;  ///< "1,023.9"
constexpr double kUnit = 27;    ///< with the space before it
constexpr double kShare = 56;   ///< "100.0 %", with the space before it
constexpr TextStyle kHeadStyle{11.5, 500};
constexpr TextStyle kText{13, 400};
constexpr TextStyle kFigure{13, 400, true};
constexpr TextStyle kCaption{12, 400};

/// "12.3 %", or "<0.1 %" of what is there but rounds to nothing.
std::string shareOf(std::uint64_t size, std::uint64_t total) {
  const double share = total == 0 ? 0 : 100 * static_cast<double>(size) / static_cast<double>(total);
  return size > 0 && share < 0.05 ? "<0.1 %" : fmt::format("{:.1f} %", share);
}

void drawRow(const Canvas& canvas, const MapRect& row, const Entry& entry, const Colour& tick,
             const MapScope& scope, const Theme& theme) {
  const std::uint64_t total =
      scope.metric == Metric::logical ? scope.node->totalLogical : scope.node->totalPhysical;
  const std::uint64_t size = entry.size(scope.metric);
  const double middle = row.y + row.h / 2;
  canvas.fill(MapRect{row.x, middle - kTick.h / 2, kTick.w, kTick.h}, tick);
  const double unitEnd = row.right() - kShare;
  const double numberEnd = unitEnd - kUnit;
  const double left = row.x + kTick.w + kBesideTick;
  const bool isRest = std::holds_alternative<Entry::Rest>(entry.payload);
  const std::string name = fitted(displayText(entry.name), std::holds_alternative<Entry::File>(entry.payload),
                                  numberEnd - kNumber - left, kText, canvas.measures());
  canvas.text(name, kText, isRest ? theme.ink3 : theme.ink, left, middle);
  const std::string bytes = humanBytes(size);
  const std::size_t space = bytes.find(' ');
  canvas.text(bytes.substr(0, space), kFigure, theme.ink, numberEnd, middle, Canvas::Align::right);
  canvas.text(bytes.substr(space + 1), kCaption, theme.ink3, numberEnd + 4, middle);
  canvas.text(shareOf(size, total), kFigure, theme.ink2, row.right(), middle, Canvas::Align::right);
}

}  // namespace

void drawLegend(const Canvas& canvas, const MapScope& scope, const MapRect& area, const Theme& theme) {
  const auto room = static_cast<std::size_t>(std::max(0.0, (area.h - kHead) / kRow));
  if (room < 2) return;
  std::vector<Entry> rows = scopeEntries(scope.node, scope.rootPath, scope.metric, room - 1);
  std::erase_if(rows, [&](const Entry& row) { return row.size(scope.metric) == 0; });
  if (rows.empty()) return;
  const double headMiddle = area.y + kHead / 2 - 1;
  canvas.text("Name", kHeadStyle, theme.ink3, area.x + kTick.w + kBesideTick, headMiddle);
  canvas.text("Size", kHeadStyle, theme.ink3, area.right() - kShare - kUnit, headMiddle,
              Canvas::Align::right);
  canvas.text("Share", kHeadStyle, theme.ink3, area.right(), headMiddle, Canvas::Align::right);
  canvas.rule(area.x, area.right(), area.y + kHead - 2, theme.line);
  for (std::size_t at = 0; at < rows.size(); ++at) {
    const bool isRest = std::holds_alternative<Entry::Rest>(rows[at].payload);
    const Colour tick = theme.fill(topSlot(rows[at], at, *scope.node), 1, isRest);
    drawRow(canvas, {area.x, area.y + kHead + kRow * static_cast<double>(at), area.w, kRow}, rows[at], tick,
            scope, theme);
  }
}

}  // namespace quon
