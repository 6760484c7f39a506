#include "base/MainThread.h"

#include <string>

#include "base/Fatal.h"

#ifndef NDEBUG
namespace quon {

void requireBackground(const char* call) {
  if (MainThreadWork::isUnderWay()) fatal(std::string(call) + " may wait for a disk: not on the main thread");
}

}  // namespace quon
#endif
