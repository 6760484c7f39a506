#pragma once

#include <string_view>

namespace quon {

/// Stops the program with a message on standard error: for broken invariants and overflowing totals, which
/// must never turn into a wrong number. Any thread.
[[noreturn]] void fatal(std::string_view message) noexcept;

}  // namespace quon

/// Stops the program when an invariant does not hold, in every build type.
#define QUON_CHECK(condition, message)        \
  do {                                        \
    if (!(condition)) ::quon::fatal(message); \
  } while (false)
