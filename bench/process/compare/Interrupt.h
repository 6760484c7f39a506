#pragma once

#include <stdexcept>

namespace quon::bench {

/// The user asked the program to stop. Thrown between runs, so that what was made for them is removed.
class Interrupted : public std::runtime_error {
 public:
  Interrupted() : std::runtime_error("interrupted") {}
};

/// From now on SIGINT and SIGTERM are remembered instead of ending the program; blocking calls return EINTR.
/// Threads: main only, once.
void rememberInterrupts();

[[nodiscard]] bool wasInterrupted();

}  // namespace quon::bench
