#include "base/Fatal.h"

#include <cstdio>
#include <cstdlib>

namespace quon {

void fatal(std::string_view message) noexcept {
  std::fprintf(stderr, "[quon] fatal: %.*s\n", static_cast<int>(message.size()), message.data());
  std::abort();
}

}  // namespace quon
