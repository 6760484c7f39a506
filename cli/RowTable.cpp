#include "RowTable.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <string_view>

#include "base/HumanBytes.h"
#include "base/Path.h"
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
  for (const Entry& row : rows) all += rowOf(row);
  return all;
}

std::string RowTable::rowOf(const Entry& row) const {
  const auto* folder = std::get_if<RefPtr<DirNode>>(&row.payload);
  const bool isFolder = folder != nullptr;
  const bool isRest = std::holds_alternative<Entry::Rest>(row.payload);
  const std::string name = fullPaths && !isRest ? shown(row.path()) : displayText(row.name);
  const Style style = isFolder ? Style::folder : isRest ? Style::dim : Style::plain;
  if (now == 0) return line(row.size(metric), "", name, style);
  RowTable aged = *this;
  aged.extraColumns = kAgeColumns;
  const std::string age = humanAge(isFolder ? (*folder)->newest : row.mtime(), now);
  return aged.line(row.size(metric), age, name, style);
}

std::string RowTable::line(std::uint64_t size, std::string_view extra, std::string_view label,
                           Style style) const {
  const double share = shareOf(size, total);
  std::string text = fmt::format("{:>{}}{:>{}}", humanBytes(size), kSizeColumns,
                                 fmt::format("{:.1f}%", share * 100.0), kShareColumns);
  std::size_t used = kSizeColumns + kShareColumns + kGap;
  text.append(kGap, ' ');
  if (hasBar()) {
    text += bar(share);
    text.append(kGap, ' ');
    used += kBarCells + kGap;
  }
  if (extraColumns != 0) {
    text += fmt::format("{:>{}}", extra, extraColumns);
    text.append(kGap, ' ');
    used += extraColumns + kGap;
  }
  return text + styled(label, used, style) + "\n";
}

std::string RowTable::part(std::string_view size, std::string_view label, Style style) const {
  const std::size_t lead = kSizeColumns + kShareColumns + (hasBar() ? kGap + kBarCells : 0);
  return fmt::format("{:>{}}", size, lead) + std::string(kGap, ' ') + styled(label, lead + kGap, style) +
         "\n";
}

std::string shownPath(std::string_view path, std::string_view home) {
  const auto below = home.empty() ? std::nullopt : relativeTo(path, home);
  if (!below) return displayText(path);
  return below->empty() ? "~" : "~/" + displayText(*below);
}

std::string RowTable::styled(std::string_view label, std::size_t used, Style style) const {
  constexpr const char* kColours[]{"", "\033[1;34m", "\033[1m", "\033[2m"};
  std::string text(label);
  if (style == Style::folder && !text.ends_with('/')) text += '/';
  text = fitToWidth(text, columns > used ? columns - used : 1);
  if (!colour || style == Style::plain) return text;
  return kColours[static_cast<std::size_t>(style)] + text + "\033[0m";
}

bool RowTable::hasBar() const {
  return columns >= (fullPaths ? kNarrowForPaths : kNarrow);
}

}  // namespace quon::cli
