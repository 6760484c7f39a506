#include "RowTable.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <string_view>

#include "base/HumanBytes.h"
#include "base/Text.h"
#include "lenses/Age.h"

namespace quon::cli {
namespace {

constexpr std::size_t kBarCells = 16;
constexpr std::size_t kSizeColumns = 10;  // "1023.9 MB"
constexpr std::size_t kShareColumns = 8;  // "100.0%"
constexpr std::size_t kAgeColumns = 8;    // "12.3 yr"
constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrow = 60;  // below this the bar gives way to the name
constexpr std::size_t kNarrowForPaths = 110;
constexpr const char* kFolderColour = "\033[1;34m";
constexpr const char* kDim = "\033[2m";
constexpr const char* kPlain = "\033[0m";

double shareOf(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

/// A bar in eighths of a cell.
std::string bar(double share) {
  constexpr std::string_view kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  const double clamped = std::clamp(share, 0.0, 1.0);
  const auto eighths = static_cast<std::size_t>(std::lround(clamped * static_cast<double>(kBarCells * 8)));
  std::string cells;
  for (std::size_t cell = 0; cell < eighths / 8; ++cell) cells += "█";
  cells += kEighths[eighths % 8];
  const std::size_t used = eighths / 8 + (eighths % 8 != 0 ? 1 : 0);
  cells.append(kBarCells - used, ' ');
  return cells;
}

}  // namespace

std::string RowTable::text(std::span<const Entry> rows) const {
  std::string all;
  for (const Entry& row : rows) all += line(row);
  return all;
}

std::string RowTable::line(const Entry& row) const {
  const double share = shareOf(row.size(metric), total);
  std::string text = fmt::format("{:>{}}{:>{}}", humanBytes(row.size(metric)), kSizeColumns,
                                 fmt::format("{:.1f}%", share * 100.0), kShareColumns);
  std::size_t used = kSizeColumns + kShareColumns + kGap;
  text.append(kGap, ' ');
  if (columns >= (fullPaths ? kNarrowForPaths : kNarrow)) {
    text += bar(share);
    text.append(kGap, ' ');
    used += kBarCells + kGap;
  }
  const auto* folder = std::get_if<RefPtr<DirNode>>(&row.payload);
  const bool isFolder = folder != nullptr;
  if (now != 0) {
    text += fmt::format("{:>{}}", humanAge(isFolder ? (*folder)->newest : row.mtime(), now), kAgeColumns);
    text.append(kGap, ' ');
    used += kAgeColumns + kGap;
  }
  const bool isRest = std::holds_alternative<Entry::Rest>(row.payload);
  std::string name = displayText(fullPaths && !isRest ? row.path() : row.name) + (isFolder ? "/" : "");
  name = fitToWidth(name, columns > used ? columns - used : 1);
  if (colour && isFolder) name = kFolderColour + name + kPlain;
  if (colour && isRest) name = kDim + name + kPlain;
  return text + name + "\n";
}

}  // namespace quon::cli
