#include "scan/HardLinks.h"

#include <boost/unordered/unordered_flat_set.hpp>

#include "base/Checked.h"
#include "base/Mutex.h"

namespace quon {
namespace {

/// The finaliser of SplitMix64 (Steele, Lea, Flood: "Fast splittable pseudorandom number generators", 2014).
std::uint64_t mixed(std::uint64_t value) {
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9ULL;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBULL;
  return value ^ (value >> 31U);
}

struct FileKey {
  std::uint64_t fileID;
  std::uint32_t device;
  friend bool operator==(const FileKey&, const FileKey&) = default;
};

struct FileKeyHash {
  using is_avalanching = void;
  std::size_t operator()(const FileKey& key) const { return mixed(key.fileID + mixed(key.device)); }
};

}  // namespace

struct alignas(64) HardLinks::Shard {
  mutable Mutex lock;
  boost::unordered_flat_set<FileKey, FileKeyHash> seen QUON_GUARDED_BY(lock);
  std::uint64_t deduplicated QUON_GUARDED_BY(lock) = 0;
};

HardLinks::HardLinks() : shards(std::make_unique<std::array<Shard, kShards>>()) {}
HardLinks::~HardLinks() = default;

bool HardLinks::firstSightingOfHardlink(std::uint32_t device, std::uint64_t fileID) {
  Shard& shard = (*shards)[fileID & (kShards - 1)];
  const MutexLock held(shard.lock);
  if (shard.seen.insert({fileID, device}).second) return true;
  shard.deduplicated += 1;
  return false;
}

std::uint64_t HardLinks::deduplicated() const {
  std::uint64_t sum = 0;
  for (const Shard& shard : *shards) {
    const MutexLock held(shard.lock);
    sum = checkedAdd(sum, shard.deduplicated);
  }
  return sum;
}

std::uint64_t linkIdentifier(std::uint32_t rootDev, std::uint32_t device, std::uint64_t fileID) {
  if (device == rootDev) return fileID;
  // The top bit keeps these apart from inode numbers, which do not reach it on local file systems.
  return mixed(fileID + mixed(device)) | (1ULL << 63U);
}

}  // namespace quon
