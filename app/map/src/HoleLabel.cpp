#include <algorithm>
#include <cmath>
#include <initializer_list>

#include "NameParts.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "map/Labels.h"

namespace quon {

std::string fitted(const std::string& text, bool isFile, double width, const TextStyle& style,
                   TextWidths& widths) {
  const auto fits = [&](const std::string& shorter) { return widths.of(shorter, style) <= width; };
  if (fits(text)) return text;
  const auto shortened = cut({text, isFile}, 1, fits);
  return shortened ? shortened->text : std::string();
}

PlacedLabel holeLabel(const std::string& name, std::uint64_t bytes, const std::string& count, MapSize size,
                      const LabelOptions& options, TextWidths& widths) {
  constexpr double kSmallHole = 62;
  constexpr double kMargin = 4;
  const Rings rings = Rings::in(size);
  const bool isSmall = rings.hole < kSmallHole;
  const double base = options.fontSize;
  const double spread = isSmall ? 18 : 23;
  PlacedLabel label{.mark = 0, .at = rings.centre, .angle = 0, .lines = {}};
  // In the first size of these in which it fits; only a name may be cut, and then in the last.
  const auto add = [&](const std::string& text, std::initializer_list<TextStyle> styles, double y,
                       bool isName) {
    for (const TextStyle& style : styles) {
      const double half = std::abs(y) + style.size / 2;  // where the circle is narrowest beside the line
      const double room = 2 * (std::sqrt(std::max(0.0, rings.hole * rings.hole - half * half)) - kMargin);
      const bool isLast = &style == styles.end() - 1;
      const std::string shown = isName && isLast ? fitted(text, false, room, style, widths) : text;
      const double width = widths.of(shown, style);
      if (width > room) continue;
      if (!shown.empty()) label.lines.push_back({shown, style, -width / 2, y, y > 0});
      return;
    }
  };
  const double figure = base + (isSmall ? 5 : 9);
  add(displayText(name), {{base, 600}, {base - 1.5, 600}}, -spread - 1, true);
  add(humanBytes(bytes), {{figure, 600}, {base + 3, 600}, {base, 600}}, -1, false);
  add(count, {{base - 1, 400}, {base - 2, 400}}, spread, false);
  return label;
}

}  // namespace quon
