#include "base/DeliveryGate.h"

namespace quon {

void DeliveryGate::pass(const std::function<void()>& delivery) {
  {
    MutexLock held(lock);
    if (closed) return;
    delivering = true;
    deliverer = std::this_thread::get_id();
  }
  delivery();
  MutexLock held(lock);
  delivering = false;
  changed.broadcast();
}

void DeliveryGate::close() {
  MutexLock held(lock);
  closed = true;
  while (delivering && deliverer != std::this_thread::get_id()) changed.wait(lock);
}

bool DeliveryGate::isClosed() const {
  MutexLock held(lock);
  return closed;
}

}  // namespace quon
