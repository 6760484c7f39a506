#include "base/Hex.h"

namespace quon {

std::string hexDigits(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  hex.reserve(2 * bytes.size());
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    hex += digits[byte >> 4];
    hex += digits[byte & 0xf];
  }
  return hex;
}

}  // namespace quon
