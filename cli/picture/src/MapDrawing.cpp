#include "MapDrawing.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

#include "base/HumanBytes.h"
#include "base/Path.h"
#include "map/Dust.h"
#include "map/Labels.h"
#include "map/Tiles.h"

namespace quon {
namespace {

void drawLabel(const Canvas& canvas, const PlacedLabel& label, const Colour& ink, const Colour& secondary) {
  const Canvas::Place turned(canvas, label.at, label.angle);
  for (const LabelLine& line : label.lines) {
    canvas.text(line.text, line.style, line.isSecondary ? secondary : ink, line.x, line.y);
  }
}

std::string nameOf(const MapScope& scope) {
  return std::string(lastComponent(scope.node->parent != nullptr ? scope.node->name
                                   : scope.rootPath.empty()      ? std::string("/")
                                                                 : scope.rootPath));
}

std::size_t drawSunburst(const Canvas& canvas, const MapScope& scope, MapSize size, const Theme& theme) {
  const std::vector<MapMark> marks = sunburstMarks(scope, size, theme);
  const Rings rings = Rings::in(size);
  const LabelOptions options{.metric = scope.metric};
  {
    const Canvas::Place middle(canvas, rings.centre);
    for (const DustArc& arc : dustOf(marks, scope, size, theme)) {
      canvas.fill({arc.a0, arc.a1, arc.rIn, arc.rOut}, arc.fill, arc.fill, 0);
    }
    for (const MapMark& mark : marks) {
      // Thin, so that fine rings do not wash out.
      constexpr double kArcsPerWidth = 5;
      const double separator = std::min(1.0, (mark.a1 - mark.a0) * mark.rOut / kArcsPerWidth);
      canvas.fill({mark.a0, mark.a1, mark.rIn, mark.rOut}, mark.fill, theme.ground, separator);
    }
  }
  if (marks.empty() && rings.hasRoom()) canvas.circle(rings.centre, rings.hole, theme.line2, 1);
  for (const PlacedLabel& label : sunburstLabels(marks, size, options, canvas.measures())) {
    drawLabel(canvas, label, theme.label, theme.label);
  }
  const std::uint64_t files = scope.node->totalFiles;
  const std::string count =
      files == 0 ? "empty" : fmt::format("{} {}", grouped(files), files == 1 ? "file" : "files");
  const std::uint64_t bytes =
      scope.metric == Metric::logical ? scope.node->totalLogical : scope.node->totalPhysical;
  drawLabel(canvas, holeLabel(nameOf(scope), bytes, count, size, options, canvas.measures()), theme.ink,
            theme.ink3);
  return marks.size();
}

std::size_t drawTreemap(const Canvas& canvas, const MapScope& scope, MapSize size, const Theme& theme) {
  const std::vector<MapMark> marks = treemapMarks(scope, size, theme);
  const double scale = canvas.pixelsToAPoint();
  for (const MapMark& mark : marks) {
    const PixelRect tile = pixelTile(mark.rect, mark.depth, scale);
    canvas.fill(MapRect{tile.x / scale, tile.y / scale, tile.w / scale, tile.h / scale}, mark.fill);
  }
  for (const PlacedLabel& label : treemapLabels(marks, {.metric = scope.metric}, canvas.measures())) {
    drawLabel(canvas, label, theme.label, theme.label);
  }
  return marks.size();
}

}  // namespace

std::size_t drawMap(const Canvas& canvas, const MapScope& scope, MapMode mode, const MapRect& area,
                    const Theme& theme) {
  const Canvas::Place place(canvas, {area.x, area.y});
  const MapSize size{area.w, area.h};
  return mode == MapMode::sunburst ? drawSunburst(canvas, scope, size, theme)
                                   : drawTreemap(canvas, scope, size, theme);
}

}  // namespace quon
