#include "base/Sha256.h"

#include <array>
#include <cstddef>
#include <openssl/evp.h>

#include "base/Fatal.h"
#include "base/Hex.h"

namespace quon {

std::string sha256Hex(std::string_view bytes) {
  std::array<unsigned char, 32> digest{};
  unsigned int length = 0;
  const int done = EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr);
  QUON_CHECK(done == 1 && length == digest.size(), "the cryptographic library cannot compute SHA-256");

  return hexDigits({reinterpret_cast<const char*>(digest.data()), digest.size()});
}

}  // namespace quon
