#pragma once

#include <string>

#include "Typesetter.h"
#include "map/Colour.h"
#include "map/Geometry.h"
#include "map/TextWidths.h"

namespace quon {

/// What a picture is drawn on: shapes and lines of text, in points. Threads: confined.
class Canvas {
 public:
  Canvas(cairo_t* target, Typesetter& fonts, unsigned pixelsToAPoint)
      : cairo(target), type(fonts), widths(fonts), scale(pixelsToAPoint) {}

  /// On whole pixels.
  void fill(const MapRect& rect, const Colour& colour) const;
  /// A part of a ring about the origin; a whole one has no edges but its circles. The edge, of that width, is
  /// drawn over both sides of the outline; 0 for none.
  struct Sector {
    double a0;
    double a1;
    double rIn;
    double rOut;
  };
  void fill(const Sector& sector, const Colour& colour, const Colour& edge, double edgeWidth) const;
  void circle(MapPoint centre, double radius, const Colour& line, double lineWidth) const;
  /// A hairline of a pixel's width, at the y of its upper edge.
  void rule(double left, double right, double y, const Colour& colour) const;

  enum class Align : std::uint8_t { left, right };
  void text(const std::string& utf8, const TextStyle& style, const Colour& colour, double x, double middle,
            Align align = Align::left) const;

  /// Moves the origin, and turns about it, for as long as this lives.
  class Place {
   public:
    Place(const Canvas& canvas, MapPoint origin, double angle = 0);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

   private:
    cairo_t* const cairo;
  };

  [[nodiscard]] TextWidths& measures() const { return widths; }
  [[nodiscard]] double pixelsToAPoint() const { return scale; }

 private:
  void use(const Colour& colour) const;

  cairo_t* const cairo;
  Typesetter& type;
  mutable TextWidths widths;
  const double scale;
};

}  // namespace quon
