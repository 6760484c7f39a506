#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "map/MapMark.h"
#include "support/SampleTree.h"

namespace quon::test {

/// A made-up tree to draw: a few folders or very many, sizes from nothing to exabytes.
class RandomScope {
 public:
  explicit RandomScope(std::mt19937_64& random) {
    std::vector<DirNode*> folders{&tree.root()};
    const std::uint64_t most = std::uint64_t{1} << (random() % 55);
    for (std::uint64_t count = random() % 120; count > 0; --count) {
      // Many in one folder, or deep chains.
      DirNode* const parent = random() % 2 == 0 ? folders.back() : folders[random() % folders.size()];
      folders.push_back(&tree.folder("d" + std::to_string(count), parent));
    }
    for (std::uint64_t count = random() % 400; count > 0; --count) {
      DirNode& folder = *folders[random() % folders.size() / (1 + random() % 3)];
      const FileEntry file{"f" + std::to_string(count) + ".bin", random() % most, random() % most, 0};
      tree.file(folder, file);
      if (random() % 3 != 0) folder.keptFiles.push_back(file);
    }
    tree.root().rollup();
    scope = {tree.shared(), "/sample", random() % 2 == 0 ? Metric::logical : Metric::physical};
  }

  SampleTree tree;
  MapScope scope;
};

}  // namespace quon::test
