#include "recorder/RecorderRole.h"

#include <system_error>
#include <utility>

namespace quon {

RecorderRole::RecorderRole(std::string folder) : stateFolder(std::move(folder)), lock(stateFolder) {}

bool RecorderRole::listen(bool taken) {
  listener.reset();
  if (!taken) return false;
  try {
    listener.emplace(stateFolder);
    return true;
  } catch (const std::system_error&) {
    lock.release();
    throw;
  }
}

bool RecorderRole::tryTake() {
  return listen(lock.tryTake());
}

bool RecorderRole::wait() {
  listener.reset();
  return listen(lock.wait());
}

bool RecorderRole::keep() {
  if (lock.isCurrent() && listener->isInPlace()) return true;
  return listen(lock.isCurrent() || lock.tryTake());
}

void RecorderRole::release() {
  listener.reset();
  lock.release();
}

}  // namespace quon
