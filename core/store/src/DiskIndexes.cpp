#include "DiskIndexes.h"

#include <fmt/format.h>

#include "BuildingFile.h"
#include "base/Sha256.h"
#include "platform/Files.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::string_view kEnding = ".sqlite";
constexpr std::size_t kDigits = 16;

std::string keyOf(const DiskIdentity& disk) {
  return disk.isForBoot() ? fmt::format("{}:{}:{}:{}", disk.boot, disk.volume, disk.rootInode, disk.rootBorn)
                          : disk.volume;
}

bool exists(const FileService& files, const std::string& path) {
  std::error_code absent;
  return files.facts(path, absent).has_value();
}

}  // namespace

MetaMap metaOrNone(const std::string& url) {
  try {
    return ScanStore::meta(url);
  } catch (const StoreError&) {
    return {};
  }
}

std::string DiskIndexes::waitingURL(const std::string& finalURL, const DiskIdentity& disk) {
  const std::string stem = finalURL.substr(0, finalURL.size() - kEnding.size());
  return stem + "@" + sha256Hex(keyOf(disk)).substr(0, kDigits) + std::string(kEnding);
}

bool DiskIndexes::mayBeSame(const DiskIdentity& stored, const DiskIdentity& present) {
  return !stored.isKnown() || !present.isKnown() || stored.isSameDisk(present);
}

bool DiskIndexes::isGone(const FileService& files, const DiskIdentity& stored) {
  return stored.isForBoot() && stored.boot != files.boot();
}

void DiskIndexes::makeRoom(const Platform& platform, const std::string& finalURL,
                           const DiskIdentity& present) {
  if (!present.isKnown() || !exists(platform.files, finalURL)) return;
  const DiskIdentity stored = decodeDisk(metaOrNone(finalURL));
  if (mayBeSame(stored, present) || isGone(platform.files, stored)) return;
  settle(platform.files, finalURL);
  platform.files.replace(finalURL, waitingURL(finalURL, stored));
}

void DiskIndexes::bringBack(const Platform& platform, const std::string& finalURL,
                            const DiskIdentity& present) {
  if (!present.isKnown()) return;
  const std::string waiting = waitingURL(finalURL, present);
  makeRoom(platform, finalURL, present);
  if (!exists(platform.files, waiting)) return;
  // One of this disk, or one that does not say of which it is, was made later than the one that waits.
  if (exists(platform.files, finalURL) && mayBeSame(decodeDisk(metaOrNone(finalURL)), present)) return;
  settle(platform.files, waiting);
  settle(platform.files, finalURL);
  platform.files.replace(waiting, finalURL);
}

void DiskIndexes::removeWaiting(const FileService& files, const std::string& finalURL,
                                const DiskIdentity& present) {
  if (!present.isKnown()) return;
  const std::string waiting = waitingURL(finalURL, present);
  if (!exists(files, waiting)) return;
  settle(files, waiting);
  files.remove(waiting);
}

}  // namespace quon
