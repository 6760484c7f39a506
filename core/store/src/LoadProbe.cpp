#include "LoadProbe.h"

#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>

namespace quon {

LoadProbe::LoadProbe()
    : enabled(std::getenv("QUON_LOADPROBE") != nullptr),  // NOLINT(concurrency-mt-unsafe): nothing sets it
      last(std::chrono::steady_clock::now()) {}

void LoadProbe::mark(std::string_view phase) {
  if (!enabled) return;
  const auto now = std::chrono::steady_clock::now();
  const std::chrono::duration<double, std::milli> elapsed = now - last;
  fmt::print(stderr, "loadprobe: {} {:8.1f}ms\n", phase, elapsed.count());
  last = now;
}

}  // namespace quon
