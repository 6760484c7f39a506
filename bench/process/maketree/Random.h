#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <numeric>

namespace quon::bench {

/// The same numbers for the same seed with every compiler and library: xoshiro256** (Blackman and Vigna,
/// 2018), its state filled by splitmix64. Integer arithmetic only. Threads: confined to the one that makes
/// the tree.
class Random {
 public:
  explicit Random(std::uint64_t seed) {
    for (std::uint64_t& word : state) {
      seed += 0x9e3779b97f4a7c15U;
      std::uint64_t mixed = seed;
      mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
      mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
      word = mixed ^ (mixed >> 31U);
    }
  }

  [[nodiscard]] std::uint64_t next() {
    const std::uint64_t result = std::rotl(state[1] * 5U, 7) * 9U;
    const std::uint64_t shifted = state[1] << 17U;
    state[2] ^= state[0];
    state[3] ^= state[1];
    state[1] ^= state[2];
    state[0] ^= state[3];
    state[2] ^= shifted;
    state[3] = std::rotl(state[3], 45);
    return result;
  }

  /// 0 .. bound - 1; 0 when bound is 0. The bias of at most bound / 2^32 does not matter to a tree.
  [[nodiscard]] std::uint32_t below(std::uint32_t bound) {
    return static_cast<std::uint32_t>(((next() >> 32U) * bound) >> 32U);
  }

  /// True `times` in 10,000.
  [[nodiscard]] bool chance(std::uint32_t times) { return below(10'000) < times; }

  /// An index of `weights`, as often as its weight says.
  template <std::size_t size>
  [[nodiscard]] std::size_t pick(const std::array<std::uint16_t, size>& weights) {
    std::uint32_t left = below(std::accumulate(weights.begin(), weights.end(), std::uint32_t{0}));
    std::size_t index = 0;
    while (left >= weights[index]) left -= weights[index++];
    return index;
  }

  /// One of `choices`, all as often.
  template <typename Choice, std::size_t size>
  [[nodiscard]] const Choice& oneOf(const std::array<Choice, size>& choices) {
    return choices[below(static_cast<std::uint32_t>(size))];
  }

 private:
  std::array<std::uint64_t, 4> state{};
};

}  // namespace quon::bench
