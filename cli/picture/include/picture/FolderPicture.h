#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "map/MapMark.h"
#include "map/MapMode.h"

namespace quon {

/// A folder's map as it stands in a report: a title, the map, and its largest rows as a legend.
struct FolderPicture {
  MapScope scope;
  std::string path;  ///< of the scope, as bytes
  std::string when;  ///< the figures are of, in words
  MapMode mode = MapMode::sunburst;
  bool dark = false;
  std::string fontCache;  ///< folder for what is learnt of the fonts, where the system has not stored it
  MapSize size;           ///< in points; each side at least 200
  unsigned scale = 1;     ///< pixels to a point
};

/// The bytes of a file.
struct DrawnPicture {
  std::string bytes;
  std::size_t marks = 0;
};

enum class PictureFormat : std::uint8_t {
  svg,  ///< text as outlines, the same wherever it is shown; `scale` must be 1
  png,
};

/// Threads: one at a time. Throws std::runtime_error when there is not enough memory for so many pixels.
[[nodiscard]] DrawnPicture drawn(const FolderPicture& picture, PictureFormat format);

}  // namespace quon
