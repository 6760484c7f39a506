#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scan/ScanSink.h"
#include "scan/Walker.h"
#include "support/ReferenceTree.h"

namespace quon::test {

/// Keeps all that a walk records, by full path, and fails the test when a folder is recorded twice or when
/// its node does not yet have the sums of the recorded files. Threads: as a sink; read when the walk has
/// ended.
class RecordingSink final : public ScanSink {
 public:
  explicit RecordingSink(std::string rootPath) : root(std::move(rootPath)) {}

  struct Sighting {
    std::string path;
    std::uint64_t fileID;
    bool counted;
  };
  std::map<std::string, std::vector<FileEntry>> folders;
  std::vector<Sighting> sightings;

  /// Called, one at a time, at the end of every call.
  std::function<void(const DirNode&)> onRecord = [](const DirNode&) {};
  std::function<void(const DirNode&)> onLink = [](const DirNode&) {};

  void record(const DirNode& node, FileBatch files) override;
  void recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) override;

 private:
  const std::string root;
  std::mutex lock;
};

/// With the device of the root filled in.
[[nodiscard]] Walker::Options optionsFor(const std::string& root, Walker::Options rest = {});

/// Walks and rolls up.
[[nodiscard]] Walker::Result walk(Walker& walker, const std::string& root, unsigned threads);

/// Walks the root and expects each figure of the tree, the largest files, and what the sink recorded, to be
/// as the reference has it. Returns the root's node.
RefPtr<DirNode> expectWalkMatches(const ReferenceTree& tree, const Walker::Options& options,
                                  unsigned threads);

}  // namespace quon::test
