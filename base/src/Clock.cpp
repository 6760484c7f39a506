#include "base/Clock.h"

#include <chrono>

namespace quon {

double secondsSince1970() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace quon
