#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "live/Refresh.h"
#include "platform/Platform.h"
#include "scan/ScanSink.h"
#include "store/ScanPatcher.h"

namespace quon::Refresh {

/// A name of a multiply-linked file that a walk found.
struct WalkedLink {
  std::uint64_t fileID = 0;
  DirNode* node = nullptr;
  std::string name;
  bool counted = false;  ///< the walk's own first sighting
};

/// Keeps what a walk finds in memory. Threads: as ScanSink; its results belong to the owner after the walk.
class MemorySink final : public ScanSink {
 public:
  void record(const DirNode& node, FileBatch files) override QUON_EXCLUDES(lock);
  void recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) override
      QUON_EXCLUDES(lock);

  [[nodiscard]] ScanPatcher::Listings takeListings() QUON_EXCLUDES(lock);
  [[nodiscard]] std::vector<WalkedLink> takeLinks() QUON_EXCLUDES(lock);

 private:
  Mutex lock;
  ScanPatcher::Listings listings QUON_GUARDED_BY(lock);
  std::vector<WalkedLink> links QUON_GUARDED_BY(lock);
};

/// A subtree walked anew, not rolled up.
struct WalkedSubtree {
  std::string path;
  RefPtr<DirNode> node;
  std::vector<WalkedLink> links;
};

/// Walks the folder; the listings are added to those given.
[[nodiscard]] WalkedSubtree walkSubtree(const Platform& platform, const std::string& path,
                                        const IndexedRoot& index, ScanPatcher::Listings& listings);

/// Takes a file out of a walked node, since another sighting of it is counted.
void dropFile(DirNode& node, const std::string& name, ScanPatcher::Listings& listings);

}  // namespace quon::Refresh
