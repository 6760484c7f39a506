#include "scan/DirListing.h"

#include "platform/Directories.h"
#include "scan/HardLinks.h"

namespace quon {
namespace {

void take(const DirEntry& entry, std::uint32_t rootDev, bool oneFileSystem, DirListing& listing) {
  if (entry.name.empty()) return;
  const std::uint32_t device = entry.device != 0 ? entry.device : rootDev;
  if (entry.type == EntryType::directory) {
    if (!oneFileSystem || device == rootDev)
      listing.subdirs.push_back({std::string(entry.name), entry.mtime});
    return;
  }
  listing.files.push_back({std::string(entry.name), entry.logical, entry.physical, entry.mtime});
  if (entry.type == EntryType::regular && entry.linkCount >= 2 && entry.fileID != 0) {
    listing.linkIDs[std::string(entry.name)] = linkIdentifier(rootDev, device, entry.fileID);
  }
}

}  // namespace

DirListing DirListing::read(const Platform& platform, const std::string& path, std::uint32_t rootDev,
                            bool oneFileSystem) {
  return read(*platform.directories.makeReader(), path, rootDev, oneFileSystem);
}

DirListing DirListing::read(DirectoryReader& reader, const std::string& path, std::uint32_t rootDev,
                            bool oneFileSystem) {
  DirListing listing;
  const OpenedDirectory opened = reader.open(path);
  if (!opened.directory) {
    listing.error = true;
    listing.refusal = listing.reason = opened.error;
    return listing;
  }
  listing.self = opened.directory->facts();
  reader.start(opened.directory);
  while (true) {
    const DirectoryBatch batch = reader.next();
    for (const DirEntry& entry : batch.entries) take(entry, rootDev, oneFileSystem, listing);
    if (batch.attributesRefused || batch.status == ReadStatus::failed) {
      listing.error = true;
      // Of several reasons one that passes counts: the folder is worth another listing.
      if (!listing.reason || quon::isTransient(batch.error)) listing.reason = batch.error;
    }
    if (batch.status != ReadStatus::more) return listing;
  }
}

}  // namespace quon
