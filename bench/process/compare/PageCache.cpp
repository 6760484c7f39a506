#include "compare/PageCache.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

#include "shared/FileDescriptor.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

constexpr const char* control = "/proc/sys/vm/drop_caches";

[[nodiscard]] FileDescriptor openControl() {
  FileDescriptor opened(::open(control, O_WRONLY | O_CLOEXEC));
  if (opened) return opened;
  if (errno == EACCES || errno == EPERM || errno == EROFS) {
    throw std::runtime_error("cold runs empty the kernel's caches, which needs root");
  }
  throw SystemFailure("opening", control, errno);
}

}  // namespace

void checkMayDropCaches() {
  const FileDescriptor opened = openControl();
}

void dropCaches() {
  ::sync();
  const FileDescriptor opened = openControl();
  if (::write(opened.get(), "3", 1) != 1) throw SystemFailure("writing", control, errno);
}

}  // namespace quon::bench
