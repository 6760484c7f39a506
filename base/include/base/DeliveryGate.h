#pragma once

#include <functional>
#include <thread>

#include "base/Mutex.h"

namespace quon {

/// Lets deliveries of one stream through until it is closed; whoever closes it waits for the one under way.
/// Threads: any.
class DeliveryGate {
 public:
  /// Runs the delivery, unless the gate is closed. One at a time.
  void pass(const std::function<void()>& delivery);

  /// No delivery begins after this has returned, and none is under way, except the one that calls.
  void close();

  [[nodiscard]] bool isClosed() const;

 private:
  mutable Mutex lock;
  Condition changed;
  bool closed QUON_GUARDED_BY(lock) = false;
  bool delivering QUON_GUARDED_BY(lock) = false;
  std::thread::id deliverer QUON_GUARDED_BY(lock);
};

}  // namespace quon
