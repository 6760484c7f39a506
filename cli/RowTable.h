#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "rows/Entry.h"

namespace quon::cli {

/// A path fit for a terminal, from "~" where it lies at or below this home folder.
[[nodiscard]] std::string shownPath(std::string_view path, std::string_view home);

/// Rows as a table that fits the terminal: size, share of the total, a bar, perhaps a column more, and a
/// name.
struct RowTable {
  enum class Style : std::uint8_t { plain, folder, heading, dim };

  Metric metric = Metric::logical;
  std::uint64_t total = 0;   ///< what a share of 100 % is
  std::size_t columns = 80;  ///< of the terminal
  bool colour = false;
  bool fullPaths = false;        ///< show paths instead of names
  std::string home = {};         ///< paths below are shown from "~"; "" shows them whole
  std::int64_t now = 0;          ///< seconds since 1970: shows how long ago each row changed; 0 leaves it out
  std::size_t extraColumns = 0;  ///< width of the column before the name; 0 leaves it out

  /// Rows of folders and files.
  [[nodiscard]] std::string text(std::span<const Entry> rows) const;
  /// A row of any sort. The label is cut to what is left of the line.
  [[nodiscard]] std::string line(std::uint64_t size, std::string_view extra, std::string_view label,
                                 Style style) const;
  /// A row that belongs to the one before: its size, where there is one, takes the place of the bar.
  [[nodiscard]] std::string part(std::string_view size, std::string_view label, Style style) const;
  [[nodiscard]] std::string shown(std::string_view path) const { return shownPath(path, home); }

 private:
  [[nodiscard]] std::string rowOf(const Entry& row) const;
  [[nodiscard]] std::string styled(std::string_view label, std::size_t used, Style style) const;
  [[nodiscard]] bool hasBar() const;
};

}  // namespace quon::cli
