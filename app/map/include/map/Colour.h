#pragma once

#include <cstdint>

namespace quon {

/// A colour of the screen: sRGB, eight bits a channel.
struct Colour {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
  double alpha = 1;

  /// As it is written: 0x9BB2FB.
  [[nodiscard]] static constexpr Colour ofHex(std::uint32_t rgb, double alpha = 1) {
    return {static_cast<std::uint8_t>(rgb >> 16U), static_cast<std::uint8_t>(rgb >> 8U & 0xffU),
            static_cast<std::uint8_t>(rgb & 0xffU), alpha};
  }

  friend bool operator==(const Colour&, const Colour&) = default;
};

/// `share` of the way from one opaque colour to another, in OKLab: even steps, and no grey or foreign
/// hue in between. https://bottosson.github.io/posts/oklab
[[nodiscard]] Colour mixed(Colour from, Colour to, double share);

}  // namespace quon
