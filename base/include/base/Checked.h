#pragma once

#include <concepts>
#include <limits>

#include "base/Fatal.h"

namespace quon {

/// Sums of sizes and counts. An overflow stops the program, as a total that wrapped would be shown as true.
template <std::integral Number>
[[nodiscard]] constexpr Number checkedAdd(Number a, Number b) {
  Number sum{};
  if (__builtin_add_overflow(a, b, &sum)) fatal("a total overflows");
  return sum;
}

template <std::integral Number>
[[nodiscard]] constexpr Number checkedSub(Number a, Number b) {
  Number difference{};
  if (__builtin_sub_overflow(a, b, &difference)) fatal("a total underflows");
  return difference;
}

template <std::integral Number>
[[nodiscard]] constexpr Number checkedMul(Number a, Number b) {
  Number product{};
  if (__builtin_mul_overflow(a, b, &product)) fatal("a product of sizes overflows");
  return product;
}

/// a + b, or the largest number when that is more.
template <std::unsigned_integral Number>
[[nodiscard]] constexpr Number saturatingAdd(Number a, Number b) {
  Number sum{};
  return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<Number>::max() : sum;
}

/// a - b, or 0 when b is the larger.
template <std::unsigned_integral Number>
[[nodiscard]] constexpr Number saturatingSub(Number a, Number b) {
  return a > b ? a - b : Number{0};
}

}  // namespace quon
