#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

/// Up to `pieces` pieces in a row, each drawn from `choice` or, as often as one of them, a random byte.
inline std::string randomBytes(std::mt19937_64& random, const std::vector<std::string_view>& choice,
                               std::size_t pieces) {
  std::string bytes;
  for (std::size_t left = random() % (pieces + 1); left > 0; --left) {
    const std::size_t drawn = random() % (choice.size() + 1);
    if (drawn < choice.size()) {
      bytes += choice[drawn];
    } else {
      bytes += static_cast<char>(random());
    }
  }
  return bytes;
}

}  // namespace quon
