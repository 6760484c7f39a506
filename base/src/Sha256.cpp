#include "base/Sha256.h"

#include <array>
#include <cstddef>
#include <new>
#include <openssl/evp.h>

#include "base/Hex.h"

namespace quon {

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, 32> digest{};
  unsigned int length = 0;
  const int done = EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr);
  if (done != 1) throw std::bad_alloc();  // nothing else fails
  return hexDigits({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace quon
