#pragma once

#include <chrono>
#include <string_view>

namespace quon {

/// Writes how long each phase of a load took to standard error, one line a phase, when the environment
/// variable QUON_LOADPROBE is set; else nothing. Threads: confined to one.
class LoadProbe {
 public:
  LoadProbe();
  /// Ends a phase that began at the mark before, or at construction.
  void mark(std::string_view phase);

 private:
  bool enabled;
  std::chrono::steady_clock::time_point last;
};

}  // namespace quon
