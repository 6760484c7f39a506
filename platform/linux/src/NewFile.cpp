#include "platform_linux/NewFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/Path.h"
#include "base/Text.h"
#include "base/Uuid.h"

namespace quon {
namespace {

std::string placeBeside(const std::string& path) {
  const std::string_view folder = path.find('/') == std::string::npos ? "." : parentPath(path);
  return joinPath(pathPrefix(folder), ".quon-" + freshUuid());
}

}  // namespace

NewFile::NewFile(std::string destination) : path(std::move(destination)), place(placeBeside(path)) {}

NewFile::~NewFile() {
  if (opened.isOpen() && !isFinished) ::unlink(place.c_str());
}

void NewFile::write(std::string_view bytes) {
  create();
  while (!bytes.empty()) {
    const ssize_t written = ::write(opened.get(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) raise(errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  // Network file systems report a full disk only at a close, which that of another descriptor is as well.
  const int again = ::dup(opened.get());
  if (again < 0 || ::close(again) != 0) raise(errno);
  if (::rename(place.c_str(), path.c_str()) != 0) raise(errno);
  isFinished = true;
}

void NewFile::create() {
  struct stat present {};
  const bool isPresent = ::lstat(path.c_str(), &present) == 0;
  if (!isPresent && errno != ENOENT) raise(errno);
  if (isPresent && !S_ISREG(present.st_mode)) {
    throw std::runtime_error("cannot write " + displayText(path) + ": it exists and is not a regular file");
  }
  constexpr mode_t kReadableByAll = 0666;  // as far as the user's mask allows
  constexpr mode_t kPermissions = 0777;
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  opened = Descriptor(::open(place.c_str(), kFlags, kReadableByAll));
  if (!opened.isOpen()) raise(errno);
  if (isPresent && ::fchmod(opened.get(), present.st_mode & kPermissions) != 0) raise(errno);
}

void NewFile::raise(int error) const {
  throw std::system_error(error, std::generic_category(), "cannot write " + displayText(path));
}

}  // namespace quon
