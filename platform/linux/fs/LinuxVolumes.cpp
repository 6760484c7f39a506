#include "linux_fs/LinuxVolumes.h"

#include <array>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <system_error>

#include "base/MainThread.h"
#include "base/Path.h"
#include "linux_fs/Descriptor.h"
#include "linux_fs/Mounts.h"
#include "linux_fs/OpenFolder.h"

namespace quon {
namespace {

/// "" where the file system has none, or its driver cannot tell.
std::string labelOf(const std::string& folder) {
  const Descriptor opened = openFolder(AT_FDCWD, folder);
  std::array<char, FSLABEL_MAX> label{};
  if (!opened.isOpen() || ::ioctl(opened.get(), FS_IOC_GETFSLABEL, label.data()) != 0) return "";
  label.back() = '\0';
  return label.data();
}

std::string mountPointName(const std::string& path) {
  std::string nearest;
  try {
    for (const Mount& mount : readMounts(openMounts())) {
      if (isInside(path, mount.point) && mount.point.size() >= nearest.size()) nearest = mount.point;
    }
  } catch (const std::system_error&) {
    return "";  // a sandbox without process information
  }
  return nearest == "/" ? "" : std::string(lastComponent(nearest));
}

}  // namespace

std::optional<VolumeCapacity> LinuxVolumes::capacity(const std::string& path) const {
  requireBackground("VolumeService::capacity");
  struct statvfs found {};
  if (::statvfs(path.c_str(), &found) != 0) return std::nullopt;
  VolumeCapacity volume{.name = labelOf(path),
                        .total = std::uint64_t{found.f_blocks} * found.f_frsize,
                        .available = std::uint64_t{found.f_bavail} * found.f_frsize,
                        .availableImportant = std::nullopt};
  if (volume.name.empty()) volume.name = mountPointName(path);
  return volume;
}

}  // namespace quon
