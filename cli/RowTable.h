#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "rows/Entry.h"

namespace quon::cli {

/// Rows as a table that fits the terminal: size, share of the total, a bar, name or path.
struct RowTable {
  Metric metric = Metric::logical;
  std::uint64_t total = 0;   ///< what a share of 100 % is
  std::size_t columns = 80;  ///< of the terminal
  bool colour = false;
  bool fullPaths = false;  ///< show paths instead of names
  std::int64_t now = 0;    ///< seconds since 1970: shows how long ago each row changed; 0 leaves it out

  [[nodiscard]] std::string text(std::span<const Entry> rows) const;

 private:
  [[nodiscard]] std::string line(const Entry& row) const;
};

}  // namespace quon::cli
