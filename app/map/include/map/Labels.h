#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "map/MapMark.h"
#include "map/TextWidths.h"

namespace quon {

/// A line of a label. Its place is relative to the label's, along the text and across it.
struct LabelLine {
  std::string text;
  TextStyle style;
  double x = 0;              ///< of its left edge
  double y = 0;              ///< of the middle of its line
  bool isSecondary = false;  ///< in the hole: set in the colour of captions
};

/// Text on a mark, ready to be drawn.
struct PlacedLabel {
  std::size_t mark = 0;  ///< index
  MapPoint at;
  double angle = 0;  ///< about `at`, clockwise
  std::vector<LabelLine> lines;
};

/// What a mark is labelled with, besides its name.
struct LabelOptions {
  Metric metric = Metric::logical;
  double fontSize = 13;  ///< of the desktop, in points
};

// Of several places for a name the first where all of it can be read is taken; a mark without one is calmer
// than a name without its end. Threads: those of the measure.

[[nodiscard]] std::vector<PlacedLabel> sunburstLabels(std::span<const MapMark> marks, MapSize size,
                                                      const LabelOptions& options, TextWidths& widths);
[[nodiscard]] std::vector<PlacedLabel> treemapLabels(std::span<const MapMark> marks,
                                                     const LabelOptions& options, TextWidths& widths);

/// The middle of a sunburst: the scope's name, its size, and how much there is in it.
[[nodiscard]] PlacedLabel holeLabel(const std::string& name, std::uint64_t bytes, const std::string& count,
                                    MapSize size, const LabelOptions& options, TextWidths& widths);

/// The text when it fits, else cut as far as it must be: a file's in the middle. "" when not even its first
/// character fits.
[[nodiscard]] std::string fitted(const std::string& text, bool isFile, double width, const TextStyle& style,
                                 TextWidths& widths);

}  // namespace quon
