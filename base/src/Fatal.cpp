#include "base/Fatal.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

namespace quon {

void fatal(std::string_view message) noexcept {
  std::fprintf(stderr, "[quon] fatal: %.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

void endOutOfMemory() noexcept {
  std::fputs("quon: out of memory\n", stderr);
  std::_Exit(EXIT_FAILURE);
}

void endQuietlyOutOfMemory() noexcept {
  std::set_terminate([] {
    try {
      if (const std::exception_ptr present = std::current_exception()) std::rethrow_exception(present);
    } catch (const std::bad_alloc&) {
      endOutOfMemory();
    } catch (...) {
      // Any other exception is a fault of the program.
    }
    std::abort();
  });
}

}  // namespace quon
