#include "journal/StateFolder.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/Text.h"
#include "linux_fs/LinuxFiles.h"

namespace quon {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kOthers = 0077;

[[noreturn]] void raise(int reason, const char* operation, const std::string& path) {
  throw std::system_error(reason, std::generic_category(), operation + (" " + displayText(path)));
}

}  // namespace

void ensureStateFolder(const std::string& path) {
  LinuxFiles().makePrivateFolder(path);
  const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat found {};
  if (!folder.isOpen() || ::fstat(folder.get(), &found) != 0) raise(errno, "cannot open", path);
  if (found.st_uid != ::geteuid()) raise(EPERM, "another user owns", path);
  if ((found.st_mode & kOthers) != 0 && ::fchmod(folder.get(), kFolderMode) != 0) {
    raise(errno, "cannot close to others", path);
  }
}

Descriptor openStateFile(const std::string& path) {
  Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  struct stat found {};
  if (!file.isOpen() || ::fstat(file.get(), &found) != 0) raise(errno, "cannot open", path);
  if ((found.st_mode & kOthers) != 0 && ::fchmod(file.get(), kFileMode) != 0) {
    raise(errno, "cannot close to others", path);
  }
  return file;
}

}  // namespace quon
