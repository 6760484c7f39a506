// A label is tried in one form after the other, and the first that fits is taken: level, then along the ring,
// then along the radius, each with the name on one line or more, with and without the size; at last cut.
#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

#include "NameParts.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "map/Labels.h"

namespace quon {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kToSides = 4;  ///< of a level or tangential label
constexpr double kToArcs = 5;
constexpr double kRadialStart = 5.5;                      ///< outside the inner arc
constexpr double kRadialToSides = 0.5;                    ///< its arcs are given by the number of lines
constexpr double kSmallestRing = 44;                      ///< of radial labels
constexpr std::array<double, 3> kRadialArcs{13, 27, 40};  ///< at the inner edge, by lines

/// A rectangle of text that is turned about its middle, which is given from the centre of the map.
struct Box {
  MapPoint middle;
  double w = 0;
  double h = 0;
  double angle = 0;
};

MapPoint turned(MapPoint point, double angle) {
  return {point.x * std::cos(angle) - point.y * std::sin(angle),
          point.x * std::sin(angle) + point.y * std::cos(angle)};
}

/// The corners decide about the outer arc and the sides; about the inner arc the point nearest the centre.
bool liesIn(const Box& box, const MapMark& wedge, double toSides) {
  const double sweep = wedge.a1 - wedge.a0;
  for (const auto& [x, y] : {std::pair(-0.5, -0.5), {0.5, -0.5}, {-0.5, 0.5}, {0.5, 0.5}}) {
    const MapPoint offset = turned({x * box.w, y * box.h}, box.angle);
    const MapPoint corner{box.middle.x + offset.x, box.middle.y + offset.y};
    const double radius = std::hypot(corner.x, corner.y);
    if (radius > wedge.rOut - kToArcs) return false;
    if (sweep >= 2 * kPi - 1e-9) continue;
    double fromStart = std::fmod(std::atan2(corner.y, corner.x) - wedge.a0, 2 * kPi);
    if (fromStart < 0) fromStart += 2 * kPi;
    if (fromStart > sweep) return false;
    for (const double toSide : {fromStart, sweep - fromStart}) {
      const double distance = toSide < kPi / 2 ? radius * std::sin(toSide) : radius;
      if (distance < toSides) return false;
    }
  }
  const MapPoint centre = turned({-box.middle.x, -box.middle.y}, -box.angle);
  const MapPoint outside{std::max(0.0, std::abs(centre.x) - box.w / 2),
                         std::max(0.0, std::abs(centre.y) - box.h / 2)};
  return std::hypot(outside.x, outside.y) >= wedge.rIn + kToArcs;
}

/// The sizes of text follow the rings once these are very thick.
struct Type {
  Type(double ring, double fontSize)
      : size(std::clamp(ring / 6, fontSize - 1.5, std::max(fontSize - 1.5, fontSize + 1))),
        scale(size / (fontSize - 1.5)) {}

  [[nodiscard]] TextStyle name(int depth) const {
    if (depth == 1) return {size + 1, 600};
    return {size, depth == 2 ? 500 : 400};
  }
  [[nodiscard]] TextStyle bytes() const { return {size - 0.5, 400}; }
  [[nodiscard]] TextStyle narrow(int depth) const { return {size - 0.5, depth == 1 ? 500 : 400}; }
  [[nodiscard]] double betweenLines() const { return 13 * scale; }
  [[nodiscard]] double beforeBytes() const { return 15 * scale; }

  double size;
  double scale;
};

/// Lines one below the other, centred on their common middle.
struct Block {
  std::vector<LabelLine> lines;
  double w = 0;
  double h = 0;
};

class Placing {
 public:
  Placing(std::size_t index, const MapMark& wedge, const Rings& drawn, const LabelOptions& wanted,
          TextWidths& texts)
      : mark(wedge),
        rings(drawn),
        widths(texts),
        type(drawn.thickness, wanted.fontSize),
        middle((wedge.a0 + wedge.a1) / 2),
        arc(wedge.rIn * (wedge.a1 - wedge.a0)),
        name{*wedge.label, std::holds_alternative<Entry::File>(wedge.entry.payload)},
        bytes(humanBytes(wedge.entry.size(wanted.metric))) {
    label.mark = index;
  }

  std::optional<PlacedLabel> placed() {
    const TextStyle style = type.name(mark.depth);
    const auto whole = std::optional(std::vector{name.text});
    const auto two = broken(name, 2, style, widths);
    const auto three = broken(name, 3, style, widths);
    const bool isPlaced = level(whole, true) || level(whole, false) || level(two, true) ||
                          level(two, false) || level(three, false) || tangential(whole, true, 1.5) ||
                          tangential(whole, false, 1.3) || tangential(two, false, 1.5) ||
                          radial(whole, style) || radial(two, style) || radial(three, style) ||
                          radial(whole, type.narrow(mark.depth)) || shortened();
    return isPlaced ? std::optional(std::move(label)) : std::nullopt;
  }

 private:
  using Lines = std::optional<std::vector<std::string>>;

  [[nodiscard]] Block blockOf(const std::vector<std::string>& texts, const TextStyle& style, bool withBytes) {
    Block block;
    double y = 0;
    for (const std::string& text : texts) {
      if (!block.lines.empty()) y += type.betweenLines();
      block.lines.push_back({text, style, widths.of(text, style), y, false});
    }
    if (withBytes) {
      y += type.beforeBytes();
      block.lines.push_back({bytes, type.bytes(), widths.of(bytes, type.bytes()), y, false});
    }
    block.h = y + (block.lines.front().style.size + block.lines.back().style.size) / 2;
    const double top = block.lines.front().style.size / 2 - block.h / 2;
    for (LabelLine& line : block.lines) {
      block.w = std::max(block.w, line.x);
      line.y += top;
    }
    return block;
  }

  /// In the middle of the mark, if it fits there.
  bool centre(Block block, double angle) {
    const double radius = (mark.rIn + mark.rOut) / 2;
    const MapPoint at{radius * std::cos(middle), radius * std::sin(middle)};
    if (!liesIn({at, block.w, block.h, angle}, mark, kToSides)) return false;
    for (LabelLine& line : block.lines) line.x = -line.x / 2;
    put(at, angle, std::move(block.lines));
    return true;
  }

  void put(MapPoint at, double angle, std::vector<LabelLine> lines) {
    label.at = {rings.centre.x + at.x, rings.centre.y + at.y};
    label.angle = angle;
    label.lines = std::move(lines);
  }

  bool level(const Lines& texts, bool withBytes) {
    return texts && centre(blockOf(*texts, type.name(mark.depth), withBytes), 0);
  }

  /// Along the ring, never upside down; the arc must be longer than the text by this factor, as that is
  /// straight.
  bool tangential(const Lines& texts, bool withBytes, double factor) {
    if (!texts) return false;
    Block block = blockOf(*texts, type.name(mark.depth), withBytes);
    double longest = 0;
    for (std::size_t line = 0; line < texts->size(); ++line) longest = std::max(longest, block.lines[line].x);
    return arc >= factor * longest && centre(std::move(block), tangent());
  }

  [[nodiscard]] double tangent() const {
    const double along = middle + kPi / 2;
    return std::cos(along) >= 0 ? along : along + kPi;
  }

  /// Outwards on the right half, inwards on the left, so that it is never upside down.
  bool radial(const Lines& texts, const TextStyle& style) {
    if (!texts || rings.thickness < kSmallestRing) return false;
    if (arc < kRadialArcs[texts->size() - 1] * type.scale) return false;
    Block block = blockOf(*texts, style, false);
    const double from = mark.rIn + kRadialStart;
    const bool isRight = std::cos(middle) >= 0;
    const double angle = isRight ? middle : middle + kPi;
    const double midway = from + block.w / 2;
    const Box box{{midway * std::cos(middle), midway * std::sin(middle)}, block.w, block.h, angle};
    if (!liesIn(box, mark, kRadialToSides)) return false;
    for (LabelLine& line : block.lines) line.x = isRight ? 0 : -line.x;
    put({from * std::cos(middle), from * std::sin(middle)}, angle, std::move(block.lines));
    return true;
  }

  /// In whichever direction keeps most of it.
  bool shortened() {
    constexpr double kShare = 0.65;
    const std::size_t count = characterOffsets(name.text).size();
    const auto share = static_cast<std::size_t>(std::ceil(kShare * static_cast<double>(count)));
    const std::size_t fewest = std::clamp<std::size_t>(share, mark.depth == 1 ? 6 : 8, 10);
    const TextStyle style = type.name(mark.depth);
    const std::array<std::function<bool(const std::string&)>, 3> directions{
        [&](const std::string& text) { return level(std::vector{text}, false); },
        [&](const std::string& text) { return tangential(std::vector{text}, false, 1.3); },
        [&](const std::string& text) { return radial(std::vector{text}, style); }};
    std::optional<CutName> best;
    std::size_t bestDirection = 0;
    for (std::size_t at = 0; at < directions.size(); ++at) {
      const auto kept = cut(name, fewest, directions[at]);
      if (!kept || (best && kept->kept <= best->kept)) continue;
      best = kept;
      bestDirection = at;
    }
    return best && directions[bestDirection](best->text);
  }

  const MapMark& mark;
  const Rings& rings;
  TextWidths& widths;
  const Type type;
  const double middle;
  const double arc;  ///< length of the inner edge
  const ShownName name;
  const std::string bytes;
  PlacedLabel label;
};

}  // namespace

std::vector<PlacedLabel> sunburstLabels(std::span<const MapMark> marks, MapSize size,
                                        const LabelOptions& options, TextWidths& widths) {
  const Rings rings = Rings::in(size);
  std::vector<PlacedLabel> labels;
  for (std::size_t at = 0; at < marks.size(); ++at) {
    if (!marks[at].label) continue;
    if (auto label = Placing(at, marks[at], rings, options, widths).placed())
      labels.push_back(std::move(*label));
  }
  return labels;
}

}  // namespace quon
