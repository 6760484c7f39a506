#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/RefPtr.h"
#include "base/RootPath.h"
#include "platform_linux/LinuxPlatform.h"
#include "scan/DirNode.h"
#include "scan/FileBatch.h"
#include "scan/FileEntry.h"
#include "store/ScanStore.h"

namespace quon::test {

[[nodiscard]] const Platform& linuxPlatform();

[[nodiscard]] FileBatch batchOf(const std::vector<FileEntry>& files);

/// A tree that was made up instead of scanned, for indexes of any shape: sizes that no disk holds, chains
/// that no disk should. Threads: main only.
class SampleTree {
 public:
  explicit SampleTree(std::string_view rootPath = "/sample");

  /// Without a parent the root's child.
  DirNode& folder(std::string name, DirNode* parent = nullptr, std::int64_t mtime = 0);
  void file(DirNode& parent, FileEntry file);
  [[nodiscard]] DirNode& root() const { return *tree; }
  [[nodiscard]] RefPtr<DirNode> shared() const { return tree; }

  /// Records every folder, parents last, so that the store must make their rows itself.
  void record(ScanStore& store) const;
  /// Writes the index into the folder; its path.
  std::string save(const std::string& indexFolder, WalkResult figures = {}) const;

  const RootPath path;

 private:
  RefPtr<DirNode> tree;
  std::vector<DirNode*> folders;
  std::map<const DirNode*, std::vector<FileEntry>> files;
};

/// What is wrong within a loaded index: totals that are not what rolling up gives, a child whose parent is
/// another, kept files larger than their folder, a folder that its path does not find; "" when nothing is.
[[nodiscard]] std::string inconsistency(const Loaded& loaded, const RootPath& root);

}  // namespace quon::test
