#pragma once

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/SampleTree.h"

namespace quon::test {

/// A made-up tree whose folders are named by their paths below the root and keep all their files.
struct PathTree {
  SampleTree sample;

  /// The folder, made with those above it where it is missing; with a file of so many bytes, not kept.
  DirNode& folder(std::string_view path, std::uint64_t bytes = 0, std::int64_t mtime = 0) {
    DirNode* node = &sample.root();
    while (!path.empty()) {
      const std::string name(path.substr(0, path.find('/')));
      path.remove_prefix(std::min(path.size(), name.size() + 1));
      const auto found =
          std::ranges::find(node->subdirs, name, [](const auto& child) { return child->name; });
      node = found != node->subdirs.end() ? found->get() : &sample.folder(name, node, mtime);
    }
    if (bytes > 0) sample.file(*node, {"x", bytes, bytes * 2, mtime});
    return *node;
  }
  void file(DirNode& folder, const FileEntry& file) {
    sample.file(folder, file);
    folder.keptFiles.push_back(file);
  }
  RefPtr<DirNode> rolledUp() {
    sample.root().rollup();
    return sample.shared();
  }

  /// So many folders, each below any of those before, of names drawn from a few.
  static PathTree random(std::mt19937_64& random, int folders, const std::vector<std::string>& names) {
    PathTree tree;
    std::vector<DirNode*> all{&tree.sample.root()};
    for (int at = 0; at < folders; ++at) {
      DirNode* const parent = all[random() % all.size()];
      all.push_back(&tree.sample.folder(names[random() % names.size()], parent,
                                        static_cast<std::int64_t>(random() % 40)));
      tree.sample.file(*all.back(), {"x", random() % 50, random() % 50, 0});
    }
    return tree;
  }
  /// One folder below the other, all of one name.
  static PathTree chain(const std::string& name, int folders) {
    PathTree tree;
    DirNode* deepest = nullptr;
    for (int at = 0; at < folders; ++at) deepest = &tree.sample.folder(name, deepest);
    tree.file(*deepest, {"deep.mkv", 5, 7, 100});
    return tree;
  }
};

}  // namespace quon::test
