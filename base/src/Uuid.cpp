#include "base/Uuid.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <random>

#include "base/Hex.h"

namespace quon {

std::string freshUuid() {
  std::array<unsigned char, 16> bytes{};
  std::random_device random;
  std::ranges::generate(bytes, [&] { return static_cast<unsigned char>(random()); });
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // version 4: random
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);  // the variant of RFC 4122

  std::string uuid = hexDigits({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  std::ranges::transform(uuid, uuid.begin(),
                         [](char digit) { return digit >= 'a' ? static_cast<char>(digit - 32) : digit; });
  for (const std::size_t dash : {8U, 13U, 18U, 23U}) uuid.insert(dash, 1, '-');
  return uuid;
}

}  // namespace quon
