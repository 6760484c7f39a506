#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scan/DirNode.h"
#include "scan/FileEntry.h"
#include "scan/ScanSink.h"

namespace quon::test {

/// Keeps all that a walk tells, by full path, and fails the test when a folder is told twice or when its node
/// does not yet hold the sums of the files told. Threads: as a sink; read when the walk has ended.
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

}  // namespace quon::test
