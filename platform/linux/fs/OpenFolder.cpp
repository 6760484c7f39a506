// A path that is too long for one system call is walked in pieces that each fit one. Links are refused by
// openat2. In a sandbox whose filter does not know that call, it fails with ENOSYS or EPERM; then openat is
// used, and only the last component of each piece is kept from being a link. EPERM is also what a folder of
// another user answers to O_NOATIME, so the call is repeated without it.
#include "linux_fs/OpenFolder.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quon {
namespace {

constexpr int kReadFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kStepFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int openWithoutLinks(int at, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(static_cast<unsigned>(flags));
  how.resolve = RESOLVE_NO_SYMLINKS;
  return static_cast<int>(TEMP_FAILURE_RETRY(::syscall(SYS_openat2, at, path, &how, sizeof how)));
}

bool mayBeFiltered() {
  return errno == ENOSYS || errno == EPERM;
}

/// openat, which is never filtered.
int openAsAllowed(int at, const char* path) {
  const int opened = static_cast<int>(TEMP_FAILURE_RETRY(::openat(at, path, kReadFlags | O_NOATIME)));
  return opened < 0 && errno == EPERM ? ::openat(at, path, kReadFlags) : opened;
}

int openForReading(int at, const char* path) {
  int opened = openWithoutLinks(at, path, kReadFlags | O_NOATIME);
  if (opened < 0 && errno == EPERM) opened = openWithoutLinks(at, path, kReadFlags);
  return opened < 0 && mayBeFiltered() ? openAsAllowed(at, path) : opened;
}

int openStep(int at, const char* path) {
  const int opened = openWithoutLinks(at, path, kStepFlags);
  return opened < 0 && mayBeFiltered() ? ::openat(at, path, kStepFlags) : opened;
}

/// Steps down until the rest of the path, from `begin` on, fits one call.
Descriptor stepDown(int at, const std::string& path, std::size_t& begin) {
  const bool isAbsolute = path.front() == '/';
  Descriptor reached(::openat(at, isAbsolute ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  begin = path.find_first_not_of('/');
  while (reached.isOpen() && begin != std::string::npos && path.size() - begin >= PATH_MAX) {
    const std::size_t slash = path.rfind('/', begin + PATH_MAX - 2);
    if (slash == std::string::npos || slash <= begin) {
      errno = ENAMETOOLONG;
      return {};
    }
    reached = Descriptor(openStep(reached.get(), path.substr(begin, slash - begin).c_str()));
    begin = path.find_first_not_of('/', slash);  // a piece that began with a slash would lead back to "/"
  }
  return reached;
}

}  // namespace

Descriptor openFolder(int at, const std::string& path) {
  if (path.size() < PATH_MAX) return Descriptor(openForReading(at, path.empty() ? "." : path.c_str()));
  std::size_t begin = 0;
  const Descriptor reached = stepDown(at, path, begin);
  if (!reached.isOpen()) return {};
  return Descriptor(openForReading(reached.get(), begin == std::string::npos ? "." : path.c_str() + begin));
}

Descriptor openChildFolder(int parent, const char* name) {
  return Descriptor(openAsAllowed(parent, name));
}

}  // namespace quon
