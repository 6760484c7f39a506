#include "watch/ChangeTimes.h"

#include <algorithm>
#include <array>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <utility>

namespace quon {
namespace {

/// Not all of these are in every linux/magic.h.
constexpr std::array<std::uint64_t, 10> kTrustedFileSystems{
    EXT4_SUPER_MAGIC,  // ext2 and ext3 too
    BTRFS_SUPER_MAGIC, XFS_SUPER_MAGIC, TMPFS_MAGIC, RAMFS_MAGIC, F2FS_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC,
    0x2fc12fc1,  // ZFS
    0xca451a4e,  // bcachefs
    0x52654973,  // ReiserFS
};

}  // namespace

bool keepsChangeTimes(int descriptor) {
  struct statfs found {};
  if (::fstatfs(descriptor, &found) != 0) return false;
  return std::ranges::find(kTrustedFileSystems, static_cast<std::uint64_t>(found.f_type)) !=
         kTrustedFileSystems.end();
}

ChangeTimes::Folder ChangeTimes::enter(bool isFirst, const InodeFacts& facts, const Folder& parent) const {
  Folder found;
  found.compared = !parent.coversBelow;
  found.coversBelow = parent.coversBelow;
  if (!found.compared) return found;
  found.modified = facts.modifiedMicros >= since;
  found.changed = facts.changedMicros >= since;
  found.deep = found.changed && !isFirst && (parent.modified || !found.modified);
  found.coversBelow = found.deep;
  return found;
}

void ChangeTimes::compareEntry(int folder, const char* name, Folder& found) const {
  if (!found.compared || found.changed) return;
  const auto facts = factsOfEntry(folder, name);
  found.changed = facts && facts->changedMicros >= since;
}

void ChangeTimes::leave(const std::string& path, const Folder& found, bool listingWasWhole) {
  // One that could not be listed to its end is reported: whoever lists it again gets the reason.
  if (!found.compared || (!found.changed && listingWasWhole)) return;
  const MutexLock held(lock);
  changed.push_back({path, found.deep});
}

std::vector<SweptFolder> ChangeTimes::take() {
  const MutexLock held(lock);
  return std::exchange(changed, {});
}

}  // namespace quon
