#pragma once

#include <string>

namespace quon {

/// The gauge as a picture for a panel: an SVG document, 16 units high, in black on nothing, which the panel colours.
/// `fraction` is what is used, 0 to 1; outside it ends there.
[[nodiscard]] std::string menuBarImage(double fraction);

}  // namespace quon
