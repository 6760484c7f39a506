#include "snapshot/MenuBarImage.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <numbers>

namespace quon {
namespace {

constexpr double kHeight = 16;
constexpr double kStroke = 2;
constexpr double kTrackAlpha = 0.3;
constexpr double kRadius = kHeight / 2 - kStroke;
constexpr double kCentre = kHeight / 2;
constexpr double kGap = 4;
constexpr double kFontSize = 12.5;
constexpr double kDigitWidth = 0.62 * kFontSize;  // of most sans fonts, with room to spare
constexpr double kPercentWidth = 0.95 * kFontSize;
constexpr double kBaseline = 12.5;

std::string arc(double fraction) {
  if (fraction <= 0) return "";
  const std::string stroke = fmt::format(R"(fill="none" stroke="#000" stroke-width="{}" stroke-linecap="round")", kStroke);
  if (fraction >= 1) return fmt::format(R"(<circle cx="{0}" cy="{0}" r="{1}" {2}/>)", kCentre, kRadius, stroke);
  const double angle = fraction * 2 * std::numbers::pi;
  return fmt::format(R"(<path d="M{:.3f} {:.3f}A{} {} 0 {} 1 {:.3f} {:.3f}" {}/>)", kCentre, kCentre - kRadius, kRadius,
                     kRadius, fraction > 0.5 ? 1 : 0, kCentre + kRadius * std::sin(angle),
                     kCentre - kRadius * std::cos(angle), stroke);
}

}  // namespace

std::string menuBarImage(double fraction) {
  const double used = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0;
  const std::string digits = std::to_string(std::lround(used * 100));
  const double textWidth = static_cast<double>(digits.size()) * kDigitWidth + kPercentWidth;
  const double width = std::ceil(kHeight + kGap + textWidth);
  return fmt::format(
      R"(<svg xmlns="http://www.w3.org/2000/svg" width="{0}" height="{1}" viewBox="0 0 {0} {1}">)"
      R"(<circle cx="{2}" cy="{2}" r="{3}" fill="none" stroke="#000" stroke-width="{4}" stroke-opacity="{5}"/>{6})"
      R"(<text x="{7}" y="{8}" font-family="sans-serif" font-size="{9}" style="font-variant-numeric:tabular-nums">{10}%</text></svg>)",
      width, kHeight, kCentre, kRadius, kStroke, kTrackAlpha, arc(used), kHeight + kGap, kBaseline, kFontSize, digits);
}

}  // namespace quon
