// The page: a title over its whole width, and below it the map with the legend at its side, or at its foot
// where the page is taller than wide. What a small page has no room for is left out, the legend first.
#include "Page.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <string>

#include "Legend.h"
#include "MapDrawing.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "map/Labels.h"

namespace quon {
namespace {

constexpr double kMargin = 24;
constexpr double kNarrowMargin = 8;
constexpr double kTitle = 56;      ///< height, with the space below it
constexpr double kTitleLine = 10;  ///< middle of the first line
constexpr double kCaptionLine = 33;
constexpr double kBesideLegend = 24;
constexpr double kLeastHeight = 240;       ///< of a page with a title
constexpr MapSize kLeastBeside{620, 300};  ///< of a page with the legend at the map's side
constexpr MapSize kLeastBelow{300, 420};   ///< at its foot
constexpr TextStyle kTitleStyle{18, 600};
constexpr TextStyle kCaptionStyle{12, 400};

std::string counted(std::uint64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", grouped(count), noun, count == 1 ? "" : "s");
}

/// The folders at the front give way to "…" one after the other, until the rest fits.
std::string shownPath(const std::string& path, double width, TextWidths& widths) {
  std::string shown = displayText(path);
  for (std::size_t slash = shown.find('/', 1); widths.of(shown, kTitleStyle) > width;
       slash = shown.find('/', std::string_view("…/").size())) {
    if (slash == std::string::npos) return fitted(shown, false, width, kTitleStyle, widths);
    shown = "…" + shown.substr(slash);
  }
  return shown;
}

void drawTitle(const Canvas& canvas, const FolderPicture& picture, const MapRect& area, const Theme& theme) {
  const DirNode& scope = *picture.scope.node;
  canvas.text(shownPath(picture.path, area.w, canvas.measures()), kTitleStyle, theme.ink, area.x,
              area.y + kTitleLine);
  const bool isLogical = picture.scope.metric == Metric::logical;
  const std::string size =
      fmt::format("{} {}", humanBytes(isLogical ? scope.totalLogical : scope.totalPhysical),
                  isLogical ? "in apparent size" : "on disk");
  const std::string files = " · " + counted(scope.totalFiles, "file");
  const std::string folders = " · " + counted(scope.totalDirs, "folder");
  const std::string when = " · as of " + picture.when;
  // The first that there is room for.
  for (const std::string& caption :
       {fmt::format("{}{}{}{}", size, files, folders, when), fmt::format("{}{}{}", size, files, when), size + when, size}) {
    if (canvas.measures().of(caption, kCaptionStyle) > area.w) continue;
    return canvas.text(caption, kCaptionStyle, theme.ink3, area.x, area.y + kCaptionLine);
  }
}

/// Takes the legend's part off the area; none where there is no room for both.
MapRect takeLegend(MapRect& area, MapSize page) {
  constexpr double kShareOfWidth = 0.3;
  constexpr double kShareOfHeight = 0.36;
  constexpr double kNarrowest = 250;
  constexpr double kWidest = 380;
  if (page.w > page.h && page.w >= kLeastBeside.w && page.h >= kLeastBeside.h) {
    const double width = std::round(std::clamp(page.w * kShareOfWidth, kNarrowest, kWidest));
    area.w -= width + kBesideLegend;
    return {area.right() + kBesideLegend, area.y, width, area.h};
  }
  if (page.w <= page.h && page.w >= kLeastBelow.w && page.h >= kLeastBelow.h) {
    const double height = std::round(area.h * kShareOfHeight);
    area.h -= height + kMargin;
    return {area.x, area.bottom() + kMargin, area.w, height};
  }
  return {};
}

}  // namespace

std::size_t drawPage(const Canvas& canvas, const FolderPicture& picture) {
  const Theme& theme = Theme::of(picture.dark);
  const MapSize page = picture.size;
  canvas.fill(MapRect{0, 0, page.w, page.h}, theme.ground);
  const double margin = std::min(page.w, page.h) < kLeastHeight ? kNarrowMargin : kMargin;
  MapRect area{margin, margin, page.w - 2 * margin, page.h - 2 * margin};
  if (page.h >= kLeastHeight) {
    drawTitle(canvas, picture, area, theme);
    area.y += kTitle;
    area.h -= kTitle;
  }
  const MapRect legend = takeLegend(area, page);
  drawLegend(canvas, picture.scope, legend, theme);
  return drawMap(canvas, picture.scope, picture.mode, area, theme);
}

}  // namespace quon
