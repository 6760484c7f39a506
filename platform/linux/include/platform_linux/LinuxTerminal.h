#pragma once

#include <cstddef>

namespace quon {

/// What the standard streams are connected to.
struct Terminal {
  bool outputIsTerminal = false;
  bool errorIsTerminal = false;
  bool colour = false;       ///< output is a terminal and NO_COLOR is not set
  std::size_t columns = 80;  ///< of the terminal; $COLUMNS, else 80, when there is none

  [[nodiscard]] static Terminal detect();
};

}  // namespace quon
