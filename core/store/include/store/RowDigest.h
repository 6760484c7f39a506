#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace quon {

/// A 64-bit digest of what one row of an index says. The sum of the digests of many rows, modulo 2^64, is the
/// same in any order, and can be kept current row by row.
///
/// Indexes contain such sums: a change of this function is a change of the format. Not made to withstand
/// forgery. The step is the multiply and shift of splitmix64 (Steele, Lea, Flood: Fast Splittable
/// Pseudorandom Number Generators, 2014).
class RowDigest {
 public:
  RowDigest& add(std::uint64_t value) {
    state = (state ^ value) * 0x9E3779B97F4A7C15ULL;
    state ^= state >> 32U;
    return *this;
  }
  RowDigest& add(std::int64_t value) { return add(static_cast<std::uint64_t>(value)); }
  RowDigest& add(std::string_view bytes) {
    std::uint64_t word = 0;
    std::size_t at = 0;
    for (; at + sizeof word <= bytes.size(); at += sizeof word) {
      std::memcpy(&word, bytes.data() + at, sizeof word);
      add(word);
    }
    word = 0;
    std::memcpy(&word, bytes.data() + at, bytes.size() - at);
    return add(word).add(std::uint64_t{bytes.size()});
  }
  [[nodiscard]] std::uint64_t value() const {
    const std::uint64_t mixed = (state ^ (state >> 29U)) * 0xBF58476D1CE4E5B9ULL;
    return mixed ^ (mixed >> 32U);
  }

 private:
  std::uint64_t state = 0x94D049BB133111EBULL;
};

/// Of a counted file, whatever folder it is in.
[[nodiscard]] inline std::uint64_t fileDigest(std::string_view name, std::uint64_t logical,
                                              std::uint64_t physical, std::int64_t mtime) {
  return RowDigest().add(name).add(logical).add(physical).add(mtime).value();
}

/// Of a sighting of a multiply-linked file, whatever folder it is in and whether or not it is counted.
[[nodiscard]] inline std::uint64_t linkDigest(std::uint64_t fileID, std::string_view name) {
  return RowDigest().add(name).add(fileID).value();
}

}  // namespace quon
