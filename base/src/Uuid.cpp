#include "base/Uuid.h"

#include <array>
#include <cstddef>
#include <openssl/rand.h>
#include <string_view>

#include "base/Fatal.h"

namespace quon {

std::string freshUuid() {
  std::array<unsigned char, 16> bytes{};
  QUON_CHECK(RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1,
             "the system gives no random bytes");
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0f) | 0x40);  // version 4: random
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3f) | 0x80);  // the variant of RFC 4122

  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  std::string uuid;
  uuid.reserve(36);
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10) uuid += '-';
    uuid += hexDigits[bytes[index] >> 4];
    uuid += hexDigits[bytes[index] & 0xf];
  }
  return uuid;
}

}  // namespace quon
