#include "Canvas.h"

#include <cairo.h>
#include <numbers>

#include "map/Tiles.h"

namespace quon {
namespace {

constexpr double kTurn = 2 * std::numbers::pi;
constexpr double kRounding = 1e-9;

}  // namespace

void Canvas::use(const Colour& colour) const {
  constexpr double kMost = 255;
  cairo_set_source_rgba(cairo, colour.r / kMost, colour.g / kMost, colour.b / kMost, colour.alpha);
}

void Canvas::fill(const MapRect& rect, const Colour& colour) const {
  use(colour);
  const int x = pixelEdge(rect.x, scale);
  const int y = pixelEdge(rect.y, scale);
  cairo_rectangle(cairo, x / scale, y / scale, (pixelEdge(rect.right(), scale) - x) / scale,
                  (pixelEdge(rect.bottom(), scale) - y) / scale);
  cairo_fill(cairo);
}

void Canvas::fill(const Sector& sector, const Colour& colour, const Colour& edge, double edgeWidth) const {
  const bool isWhole = sector.a1 - sector.a0 >= kTurn - kRounding;
  cairo_new_path(cairo);
  cairo_arc(cairo, 0, 0, sector.rOut, sector.a0, sector.a1);
  if (isWhole) {
    cairo_close_path(cairo);
    cairo_new_sub_path(cairo);
  }
  cairo_arc_negative(cairo, 0, 0, sector.rIn, sector.a1, sector.a0);
  cairo_close_path(cairo);
  use(colour);
  if (edgeWidth <= 0) return cairo_fill(cairo);
  cairo_fill_preserve(cairo);
  use(edge);
  cairo_set_line_width(cairo, edgeWidth);
  cairo_stroke(cairo);
}

void Canvas::circle(MapPoint centre, double radius, const Colour& line, double lineWidth) const {
  cairo_new_path(cairo);
  cairo_arc(cairo, centre.x, centre.y, radius, 0, kTurn);
  use(line);
  cairo_set_line_width(cairo, lineWidth);
  cairo_stroke(cairo);
}

void Canvas::rule(double left, double right, double y, const Colour& colour) const {
  use(colour);
  const double x = pixelEdge(left, scale) / scale;
  cairo_rectangle(cairo, x, pixelEdge(y, scale) / scale, pixelEdge(right, scale) / scale - x,
                  pixelWidth(1, scale) / scale);
  cairo_fill(cairo);
}

void Canvas::text(const std::string& utf8, const TextStyle& style, const Colour& colour, double x,
                  double middle, Align align) const {
  use(colour);
  type.draw(cairo, utf8, style, align == Align::left ? x : x - widths.of(utf8, style), middle);
}

Canvas::Place::Place(const Canvas& canvas, MapPoint origin, double angle) : cairo(canvas.cairo) {
  cairo_save(cairo);
  cairo_translate(cairo, origin.x, origin.y);
  cairo_rotate(cairo, angle);
}

Canvas::Place::~Place() {
  cairo_restore(cairo);
}

}  // namespace quon
