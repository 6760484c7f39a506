#include <algorithm>
#include <optional>
#include <utility>

#include "NameParts.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "map/Labels.h"
#include "map/Tiles.h"

namespace quon {
namespace {

constexpr double kMargin = 6;      ///< beside a text
constexpr double kFirstLine = 12;  ///< middle of the first line below the tile's upper edge
constexpr double kLineHeight = 14;
constexpr double kBytesBelow = 15;  ///< the name's last line
constexpr double kBelow = 8;        ///< from the middle of the last line to the tile's lower edge, at least
constexpr double kBetween = 8;      ///< a header's name and size
constexpr MapSize kLarge{150, 84};

class Placing {
 public:
  Placing(std::size_t index, const MapMark& cell, const LabelOptions& wanted, TextWidths& texts)
      : mark(cell),
        tile(tileOf(cell.rect, cell.depth)),
        base(wanted.fontSize),
        widths(texts),
        name{*cell.label, std::holds_alternative<Entry::File>(cell.entry.payload)},
        bytes(humanBytes(cell.entry.size(wanted.metric))) {
    label.mark = index;
    label.at = {tile.x, tile.y};
  }

  std::optional<PlacedLabel> placed() {
    mark.hasHeader ? header() : leaf();
    return label.lines.empty() ? std::nullopt : std::optional(std::move(label));
  }

 private:
  [[nodiscard]] double room() const { return tile.w - 2 * kMargin; }
  [[nodiscard]] TextStyle bytesStyle() const { return {base - 2, 400}; }

  void header() {
    const TextStyle style{base - 1.5, mark.depth == 1 ? 600 : 500};
    const double middle = TileMeasures::kHeader / 2;
    const double width = widths.of(name.text, style);
    if (width > room()) {
      if (const auto shorter = cutTo(style)) label.lines.push_back({*shorter, style, kMargin, middle, false});
      return;
    }
    label.lines.push_back({name.text, style, kMargin, middle, false});
    const double bytesWidth = widths.of(bytes, bytesStyle());
    if (width + kBetween + bytesWidth > room()) return;
    label.lines.push_back({bytes, bytesStyle(), tile.w - kMargin - bytesWidth, middle, false});
  }

  void leaf() {
    const bool isLarge = tile.w > kLarge.w && tile.h > kLarge.h;
    const TextStyle style{isLarge ? base : base - 1.5, mark.depth == 1 ? 600 : 400};
    double y = std::min(kFirstLine, tile.h / 2);
    for (const std::string& line : linesOf(style)) {
      label.lines.push_back({line, style, kMargin, y, false});
      y += kLineHeight;
    }
    if (label.lines.empty()) return;
    y = label.lines.back().y + kBytesBelow;
    if (y + kBelow > tile.h || widths.of(bytes, bytesStyle()) > room()) return;
    label.lines.push_back({bytes, bytesStyle(), kMargin, y, false});
  }

  std::vector<std::string> linesOf(const TextStyle& style) {
    if (widths.of(name.text, style) <= room()) return {name.text};
    if (kFirstLine + kLineHeight + kBelow <= tile.h) {
      const auto two = broken(name, 2, style, widths);
      const auto fits = [&](const std::string& line) { return widths.of(line, style) <= room(); };
      if (two && std::ranges::all_of(*two, fits)) return *two;
    }
    const auto shorter = cutTo(style);
    return shorter ? std::vector{*shorter} : std::vector<std::string>();
  }

  /// Half of it stays, at least.
  std::optional<std::string> cutTo(const TextStyle& style) {
    const std::size_t half = (characterOffsets(name.text).size() + 1) / 2;
    const auto shorter = cut(name, std::clamp<std::size_t>(half, 5, 8),
                             [&](const std::string& text) { return widths.of(text, style) <= room(); });
    return shorter ? std::optional(shorter->text) : std::nullopt;
  }

  const MapMark& mark;
  const MapRect tile;
  const double base;
  TextWidths& widths;
  const ShownName name;
  const std::string bytes;
  PlacedLabel label;
};

}  // namespace

std::vector<PlacedLabel> treemapLabels(std::span<const MapMark> marks, const LabelOptions& options,
                                       TextWidths& widths) {
  std::vector<PlacedLabel> labels;
  for (std::size_t at = 0; at < marks.size(); ++at) {
    if (!marks[at].label) continue;
    if (auto label = Placing(at, marks[at], options, widths).placed()) labels.push_back(std::move(*label));
  }
  return labels;
}

}  // namespace quon
