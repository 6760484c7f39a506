#pragma once

#include <string_view>

namespace quon {

/// Stops the program with a message on standard error: for broken invariants and overflowing totals, which
/// must never turn into a wrong number. Any thread.
[[noreturn]] void fatal(std::string_view message) noexcept;

/// Ends the program with one line on standard error and status 1, without destructors: no memory is left, and
/// what is done cannot be undone without. Any thread.
[[noreturn]] void endOutOfMemory() noexcept;

/// From now on an exception that nothing can catch ends the program as endOutOfMemory does, when it is for
/// want of memory. Called once by main.
void endQuietlyOutOfMemory() noexcept;

}  // namespace quon

/// Stops the program when an invariant does not hold, in every build type.
#define QUON_CHECK(condition, message)        \
  do {                                        \
    if (!(condition)) ::quon::fatal(message); \
  } while (false)
