#include "linux_fs/LinuxFiles.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "DeviceNumber.h"
#include "base/MainThread.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "linux_fs/Descriptor.h"
#include "linux_fs/DiskIdentity.h"
#include "linux_fs/Mounts.h"

namespace quon {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::uint64_t kBlockBytes = 512;  // of st_blocks, whatever the file system's are

std::error_code lastError() {
  return {errno, std::generic_category()};
}

[[noreturn]] void raise(const char* operation, const std::string& path) {
  throw std::system_error(lastError(), operation + (" " + displayText(path)));
}

std::optional<PathFacts> factsOf(const std::string& path, int flags, std::error_code& error) {
  struct stat found {};
  if (::fstatat(AT_FDCWD, path.c_str(), &found, flags) != 0) {
    error = lastError();
    return std::nullopt;
  }
  return PathFacts{.isDirectory = S_ISDIR(found.st_mode),
                   .device = deviceNumber(major(found.st_dev), minor(found.st_dev)),
                   .fileID = found.st_ino,
                   .linkCount = found.st_nlink,
                   .logical = static_cast<std::uint64_t>(found.st_size),
                   .physical = static_cast<std::uint64_t>(found.st_blocks) * kBlockBytes,
                   .mtime = found.st_mtim.tv_sec};
}

}  // namespace

std::optional<PathFacts> LinuxFiles::facts(const std::string& path, std::error_code& error) const {
  requireBackground("FileService::facts");
  return factsOf(path, 0, error);
}

std::optional<PathFacts> LinuxFiles::ownFacts(const std::string& path, std::error_code& error) const {
  requireBackground("FileService::ownFacts");
  return factsOf(path, AT_SYMLINK_NOFOLLOW, error);
}

std::optional<std::string> LinuxFiles::canonical(const std::string& path, std::error_code& error) const {
  requireBackground("FileService::canonical");
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
  if (!resolved) {
    error = lastError();
    return std::nullopt;
  }
  return std::string(resolved.get());
}

std::error_code LinuxFiles::readable(const std::string& folder) const {
  requireBackground("FileService::readable");
  const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return opened.isOpen() ? std::error_code() : lastError();
}

DiskIdentity LinuxFiles::disk(const std::string& folder) const {
  requireBackground("FileService::disk");
  return diskOf(folder);
}

std::string LinuxFiles::boot() const {
  requireBackground("FileService::boot");
  return bootIdentity();
}

std::vector<std::string> LinuxFiles::mountPoints() const {
  requireBackground("FileService::mountPoints");
  std::vector<std::string> points;
  for (Mount& mount : readMounts(openMounts())) points.push_back(std::move(mount.point));
  return points;
}

void LinuxFiles::makePrivateFolder(const std::string& path) const {
  requireBackground("FileService::makePrivateFolder");
  for (std::size_t end = path.find('/', 1); true; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    if (::mkdir(folder.c_str(), kFolderMode) != 0) {
      // A folder that is there already is no obstacle, also where none may be made (a read-only mount, say).
      const std::error_code reason = lastError();
      struct stat found {};
      if (::stat(folder.c_str(), &found) != 0 || !S_ISDIR(found.st_mode)) {
        errno = reason.value();
        raise("cannot create folder", folder);
      }
    }
    if (end == std::string::npos) return;
  }
}

void LinuxFiles::createPrivateFile(const std::string& path) const {
  requireBackground("FileService::createPrivateFile");
  const Descriptor file(::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!file.isOpen()) raise("cannot create", path);
}

void LinuxFiles::writePrivateFile(const std::string& path, std::string_view content) const {
  requireBackground("FileService::writePrivateFile");
  const std::string fresh = path + "." + freshUuid();
  createPrivateFile(fresh);
  try {
    const Descriptor opened(::open(fresh.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
    ssize_t bytes = opened.isOpen() ? 0 : -1;
    for (std::size_t at = 0; bytes >= 0 && at < content.size(); at += static_cast<std::size_t>(bytes)) {
      bytes = ::write(opened.get(), content.data() + at, content.size() - at);
    }
    if (bytes < 0 || ::fsync(opened.get()) != 0) raise("cannot write", path);
    replace(fresh, path);
  } catch (const std::system_error&) {
    (void)::unlink(fresh.c_str());  // what went wrong is what is to be told
    throw;
  }
}

void LinuxFiles::replace(const std::string& from, const std::string& to) const {
  requireBackground("FileService::replace");
  if (::rename(from.c_str(), to.c_str()) != 0) raise("cannot move into place", to);
}

bool LinuxFiles::remove(const std::string& path) const {
  requireBackground("FileService::remove");
  if (::unlink(path.c_str()) == 0) return true;
  if (errno == ENOENT) return false;
  raise("cannot remove", path);
}

std::vector<FolderItem> LinuxFiles::list(const std::string& folder) const {
  requireBackground("FileService::list");
  std::error_code error;
  std::vector<FolderItem> items;
  for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    struct stat found {};
    const std::string path = at->path().string();
    // An entry that vanishes meanwhile is left out.
    if (::lstat(path.c_str(), &found) != 0) continue;
    items.push_back({at->path().filename().string(), found.st_mtim.tv_sec});
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    throw std::system_error(error, "cannot list " + displayText(folder));
  }
  return items;
}

}  // namespace quon
