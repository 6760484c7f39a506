#pragma once

#include <atomic>

namespace quon {

/// A request to stop. Once set it stays set; new work makes a new one. Threads: any.
class ScanCancel {
 public:
  void cancel() { cancelled.store(true, std::memory_order_release); }
  [[nodiscard]] bool isCancelled() const { return cancelled.load(std::memory_order_acquire); }

 private:
  std::atomic<bool> cancelled{false};
};

}  // namespace quon
