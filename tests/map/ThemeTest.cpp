// The colours against what was measured when they were chosen: WCAG 2 contrast of the text on them. A digit
// mistyped, or a mix in another colour space, changes these.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>

#include "map/Theme.h"

namespace quon::test {
namespace {

double luminance(const Colour& colour) {
  const auto linear = [](std::uint8_t channel) {
    const double value = channel / 255.0;
    return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(colour.r) + 0.7152 * linear(colour.g) + 0.0722 * linear(colour.b);
}

double contrast(const Colour& a, const Colour& b) {
  const double one = luminance(a) + 0.05;
  const double other = luminance(b) + 0.05;
  return std::max(one, other) / std::min(one, other);
}

double lowestOnFills(const Theme& theme, int depth) {
  double lowest = 21;
  for (int slot = 0; slot < 12; ++slot) {
    lowest = std::min(lowest, contrast(theme.label, theme.fill(slot, depth, false)));
  }
  return lowest;
}

TEST(Theme, LabelsHaveTheMeasuredContrastOnEveryFill) {
  constexpr double kLight[]{5.6, 6.6, 7.9, 9.2};
  constexpr double kDark[]{4.54, 5.6, 6.8, 8.3};
  for (int depth = 1; depth <= 4; ++depth) {
    EXPECT_NEAR(lowestOnFills(Theme::light(), depth), kLight[depth - 1], 0.06) << depth;
    EXPECT_NEAR(lowestOnFills(Theme::dark(), depth), kDark[depth - 1], 0.06) << depth;
  }
  EXPECT_EQ(Theme::light().fill(3, 5, false), Theme::light().fill(3, 9, false)) << "no paler than the limit";
}

TEST(Theme, TextHasTheMeasuredContrast) {
  for (const auto& [theme, ink, ink2, ink3, button, toast] :
       {std::tuple(&Theme::light(), 16.9, 8.1, 5.8, 6.1, 13.4),
        std::tuple(&Theme::dark(), 15.3, 9.1, 6.4, 8.2, 14.0)}) {
    EXPECT_NEAR(contrast(theme->ink, theme->ground), ink, 0.06);
    EXPECT_NEAR(contrast(theme->ink2, theme->ground), ink2, 0.06);
    EXPECT_NEAR(contrast(theme->ink3, theme->ground), ink3, 0.06);
    EXPECT_NEAR(contrast(theme->accentInk, theme->accent), button, 0.06);
    EXPECT_NEAR(contrast(theme->toastInk, theme->toast), toast, 0.06);
  }
}

}  // namespace
}  // namespace quon::test
