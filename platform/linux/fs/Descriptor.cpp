#include "linux_fs/Descriptor.h"

#include <unistd.h>

namespace quon {

Descriptor::~Descriptor() {
  if (number >= 0) ::close(number);
}

}  // namespace quon
