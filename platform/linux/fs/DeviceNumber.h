#pragma once

#include <cstdint>

namespace quon {

/// A device number in 32 bits, as the kernel itself packs it for user space (new_encode_dev: 12 bits of
/// major, 20 bits of minor number).
constexpr std::uint32_t deviceNumber(std::uint32_t majorNumber, std::uint32_t minorNumber) {
  return (minorNumber & 0xFFU) | (majorNumber << 8U) | ((minorNumber & ~0xFFU) << 12U);
}

}  // namespace quon
