// A socket's address has room for 107 bytes. A longer path is taken relative to its folder, which is open,
// through /proc/self/fd.
//
// The file is made under another name and renamed when it listens: a client that finds the name can connect,
// and one that waits for the name is woken by the rename, not too early.
#include "wire/RecorderSocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

#include "base/Text.h"

namespace quon {
namespace {

constexpr const char* kName = "recorder.socket";
constexpr const char* kUnfinishedName = "recorder.socket.new";
constexpr mode_t kFileMode = 0600;
constexpr int kBacklog = 128;

/// The address of an entry of a folder; `folder` has to stay open while it is used.
struct Address {
  Address(const std::string& folderPath, const char* name) {
    address.sun_family = AF_UNIX;
    std::string path = folderPath + "/" + name;
    if (path.size() >= sizeof address.sun_path) {
      folder = Descriptor(::open(folderPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      path = fmt::format("/proc/self/fd/{}/{}", folder.get(), name);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  }
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
  static constexpr socklen_t kSize = sizeof(sockaddr_un);

  Descriptor folder;
  sockaddr_un address{};
};

Descriptor newSocket(int flags) {
  return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

}  // namespace

const char* recorderSocketName() {
  return kName;
}

Descriptor connectToRecorder(const std::string& stateFolder) {
  Descriptor socket = newSocket(0);
  if (!socket.isOpen()) return {};
  const Address address(stateFolder, kName);
  if (::connect(socket.get(), address.get(), Address::kSize) != 0) return {};
  if (isOfThisUser(socket)) return socket;
  errno = EACCES;
  return {};
}

bool isOfThisUser(const Descriptor& socket) {
  ucred other{};
  socklen_t size = sizeof other;
  return ::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &other, &size) == 0 && other.uid == ::geteuid();
}

RecorderSocket::RecorderSocket(const std::string& stateFolder)
    : path(stateFolder + "/" + kName), socket(newSocket(SOCK_NONBLOCK)) {
  const auto fail = [&] {
    throw std::system_error(errno, std::generic_category(), "cannot listen at " + displayText(path));
  };
  const std::string unfinished = stateFolder + "/" + kUnfinishedName;
  if (!socket.isOpen()) fail();
  if (::unlink(unfinished.c_str()) != 0 && errno != ENOENT) fail();
  const Address address(stateFolder, kUnfinishedName);
  // The mode is that of the file which bind makes.
  if (::fchmod(socket.get(), kFileMode) != 0 || ::bind(socket.get(), address.get(), Address::kSize) != 0 ||
      ::listen(socket.get(), kBacklog) != 0) {
    fail();
  }
  struct stat made {};
  if (::lstat(unfinished.c_str(), &made) != 0 || ::rename(unfinished.c_str(), path.c_str()) != 0) fail();
  inode = made.st_ino;
}

bool RecorderSocket::isInPlace() const {
  struct stat found {};
  return ::lstat(path.c_str(), &found) == 0 && S_ISSOCK(found.st_mode) && found.st_ino == inode;
}

}  // namespace quon
