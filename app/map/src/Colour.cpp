#include "map/Colour.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quon {
namespace {

struct Lab {
  double l;
  double a;
  double b;
};

double linear(std::uint8_t channel) {
  static const std::array<double, 256> kLinear = [] {
    std::array<double, 256> values{};
    for (std::size_t at = 0; at < values.size(); ++at) {
      const double value = static_cast<double>(at) / 255;
      values[at] = value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    }
    return values;
  }();
  return kLinear[channel];
}

std::uint8_t channelOf(double linearValue) {
  const double value =
      linearValue <= 0.0031308 ? 12.92 * linearValue : 1.055 * std::pow(linearValue, 1 / 2.4) - 0.055;
  return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 1.0) * 255));
}

Lab labOf(Colour colour) {
  const double r = linear(colour.r);
  const double g = linear(colour.g);
  const double b = linear(colour.b);
  const double l = std::cbrt(0.4122214708 * r + 0.5363325363 * g + 0.0514459929 * b);
  const double m = std::cbrt(0.2119034982 * r + 0.6806995451 * g + 0.1073969566 * b);
  const double s = std::cbrt(0.0883024619 * r + 0.2817188376 * g + 0.6299787005 * b);
  return {0.2104542553 * l + 0.7936177850 * m - 0.0040720468 * s,
          1.9779984951 * l - 2.4285922050 * m + 0.4505937099 * s,
          0.0259040371 * l + 0.7827717662 * m - 0.8086757660 * s};
}

Colour colourOf(const Lab& lab) {
  const double l = std::pow(lab.l + 0.3963377774 * lab.a + 0.2158037573 * lab.b, 3);
  const double m = std::pow(lab.l - 0.1055613458 * lab.a - 0.0638541728 * lab.b, 3);
  const double s = std::pow(lab.l - 0.0894841775 * lab.a - 1.2914855480 * lab.b, 3);
  return {channelOf(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
          channelOf(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
          channelOf(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

}  // namespace

Colour mixed(Colour from, Colour to, double share) {
  const Lab a = labOf(from);
  const Lab b = labOf(to);
  return colourOf({std::lerp(a.l, b.l, share), std::lerp(a.a, b.a, share), std::lerp(a.b, b.b, share)});
}

}  // namespace quon
