#pragma once

#include <string>

#include "IndexMeta.h"
#include "platform/Platform.h"

namespace quon {

/// Which index of a root is the one of the disk that is there now. The index of the disk that was there last
/// has the root's usual name. When another disk is scanned in its place, that index gets a name of its own,
/// and gets the usual one back when its disk returns. Threads: any. Failures are std::system_error.
namespace DiskIndexes {

/// The name under which the index of the disk waits for it.
[[nodiscard]] std::string waitingURL(const std::string& finalURL, const DiskIdentity& disk);

/// False when both are known and differ.
[[nodiscard]] bool mayBeSame(const DiskIdentity& stored, const DiskIdentity& present);

/// True when the disk was one of an earlier boot, and can never come back.
[[nodiscard]] bool isGone(const FileService& files, const DiskIdentity& stored);

/// Moves the index with the usual name out of the way when it belongs to another disk than the one given.
/// That of a disk that has gone stays, to be replaced.
void makeRoom(const Platform& platform, const std::string& finalURL, const DiskIdentity& present);

/// Gives the index of the disk the usual name when another, or none, has it.
void bringBack(const Platform& platform, const std::string& finalURL, const DiskIdentity& present);

/// Removes an index that waits for the disk, whose index has the usual name now.
void removeWaiting(const FileService& files, const std::string& finalURL, const DiskIdentity& present);

}  // namespace DiskIndexes

/// The metadata of an index; none when it cannot be read as one.
[[nodiscard]] MetaMap metaOrNone(const std::string& url);

}  // namespace quon
