#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "scan/DirNode.h"
#include "scan/TopHeap.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

RefPtr<DirNode> addFolder(DirNode& parent, const std::string& name) {
  RefPtr<DirNode> child(new DirNode(name));
  child->parent = &parent;
  child->directFiles = 1;
  parent.subdirs.push_back(child);
  return child;
}

TEST(Tree, ReferencedNodeOutlivesItsParent) {
  RefPtr<DirNode> root(new DirNode("not part of paths"));
  RefPtr<DirNode> docs = addFolder(*root, "docs");
  const RefPtr<DirNode> x = addFolder(*docs, "x");
  root = nullptr;
  EXPECT_EQ(docs->parent, nullptr);
  EXPECT_EQ(x->path("/r"), "/r/x");
  docs = nullptr;
  EXPECT_EQ(x->path("/r"), "/r");
}

TEST(TreeDeathTest, StopsInsteadOfWrapping) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const RefPtr<DirNode> root(new DirNode(""));
  addFolder(*root, "child")->directPhysical = 1;
  root->directPhysical = std::numeric_limits<std::uint64_t>::max();
  EXPECT_DEATH(root->rollup(), "overflows");
}

TEST(Tree300000Deep, IsRolledUpNamedAndFreedWithoutRecursion) {
  constexpr std::size_t depth = 300'000;
  RefPtr<DirNode> root(new DirNode("root"));
  RefPtr<DirNode> deepest = root;
  for (std::size_t level = 0; level < depth; ++level) deepest = addFolder(*deepest, "d");
  deepest->mtime = 99;
  root->rollup();
  EXPECT_EQ(root->totalFiles, depth);
  EXPECT_EQ(root->totalDirs, depth);
  EXPECT_EQ(root->newest, 99);
  EXPECT_EQ(deepest->path("/r").size(), 2 + 2 * depth);
}

TEST(TopHeap, KeepsTheLargestOfRandomFiles) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 300; ++round) {
    const std::size_t capacity = random() % 40;
    const std::uint64_t range = 1 + random() % 100;  // small ranges make many ties
    TopHeap heap(static_cast<std::int64_t>(capacity));
    std::vector<std::uint64_t> sizes(random() % 200);
    for (std::uint64_t& size : sizes) {
      size = random() % range;
      heap.offer({"", size, 0, 0});
      ASSERT_TRUE(std::ranges::is_heap(heap.items, std::greater(), &TopFile::logical));
    }
    std::ranges::sort(sizes, std::greater());
    sizes.resize(std::min(sizes.size(), capacity));
    std::vector<std::uint64_t> kept;
    for (const TopFile& file : sortedLargestFirst(heap.items)) kept.push_back(file.logical);
    ASSERT_EQ(kept, sizes);
  }
}

}  // namespace
}  // namespace quon::test
