#include "RecordingSink.h"

#include <gtest/gtest.h>

namespace quon::test {

void RecordingSink::record(const DirNode& node, FileBatch files) {
  std::vector<FileEntry> entries;
  std::uint64_t logical = 0;
  for (std::size_t index = 0; index < files.size(); ++index) {
    const FileBatch::File file = files[index];
    entries.push_back({std::string(file.name), file.logical, file.physical, file.mtime});
    logical += file.logical;
  }
  EXPECT_EQ(node.directLogical, logical);
  EXPECT_EQ(node.directFiles, entries.size());
  const std::lock_guard held(lock);
  EXPECT_TRUE(folders.emplace(node.path(root), std::move(entries)).second) << node.path(root);
  onRecord(node);
}

void RecordingSink::recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name,
                               bool counted) {
  const std::lock_guard held(lock);
  sightings.push_back({node.path(root) + "/" + std::string(name), fileID, counted});
  onLink(node);
}

}  // namespace quon::test
