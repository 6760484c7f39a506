#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "scan/DirNode.h"
#include "scan/FileBatch.h"
#include "scan/HardLinks.h"
#include "scan/TopHeap.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using testing::ElementsAre;

RefPtr<DirNode> addFolder(DirNode& parent, const std::string& name, std::uint64_t logical = 0,
                          std::uint64_t files = 0) {
  RefPtr<DirNode> child(new DirNode(name));
  child->parent = &parent;
  child->directLogical = logical;
  child->directPhysical = 2 * logical;
  child->directFiles = files;
  parent.subdirs.push_back(child);
  return child;
}

std::vector<std::uint64_t> totals(const DirNode& node) {
  return {node.totalLogical, node.totalPhysical, node.totalFiles, node.totalDirs};
}

/// root/docs/x beside root/other.
class Tree : public testing::Test {
 protected:
  Tree() { root->rollup(); }

  RefPtr<DirNode> root{new DirNode("not part of paths")};
  RefPtr<DirNode> docs = addFolder(*root, "docs", 200, 2);
  RefPtr<DirNode> x = addFolder(*docs, "x", 30, 3);
  RefPtr<DirNode> other = addFolder(*root, "other", 4, 4);
};

TEST_F(Tree, SubtractsAFileFromAllAboveAndStopsAtZero) {
  x->keptFiles = {{"twice", 10, 20, 5}, {"stays", 1, 1, 1}, {"twice", 9, 9, 9}};
  x->newest = root->newest = 5;
  x->subtractFile({"twice", 10, 20, 5});
  EXPECT_THAT(x->keptFiles, ElementsAre(FileEntry{"stays", 1, 1, 1}));
  EXPECT_THAT(totals(*x), ElementsAre(20, 40, 2, 0));
  EXPECT_THAT(totals(*docs), ElementsAre(220, 440, 4, 1));
  EXPECT_THAT(totals(*root), ElementsAre(224, 448, 8, 3));
  EXPECT_EQ(docs->directLogical, 200U);
  EXPECT_EQ(x->directFiles, 2U);
  EXPECT_EQ(root->newest, 5);
  for (int round = 0; round < 5; ++round) other->subtractFile({"huge", 500, 1, 0});
  EXPECT_THAT(totals(*other), ElementsAre(0, 3, 0, 0));
  EXPECT_THAT(totals(*root), ElementsAre(0, 443, 3, 3));
}

TEST_F(Tree, RemovesASubtreeFromAllAbove) {
  const RefPtr<DirNode> twin = addFolder(*root, "docs");
  root->rollup();
  twin->removeFromTree();
  EXPECT_THAT(root->subdirs, ElementsAre(docs, other));
  EXPECT_THAT(totals(*root), ElementsAre(234, 468, 9, 3));
  for (DirNode* node : {docs.get(), docs.get(), root.get()}) node->removeFromTree();
  EXPECT_THAT(totals(*root), ElementsAre(4, 8, 4, 1));
  EXPECT_THAT(totals(*docs), ElementsAre(230, 460, 5, 1));
}

TEST_F(Tree, ReferencedNodeOutlivesItsParent) {
  root = nullptr;
  EXPECT_EQ(docs->parent, nullptr);
  EXPECT_EQ(x->path("/r"), "/r/x");
  docs = nullptr;
  EXPECT_EQ(x->path("/r"), "/r");
}

TEST(TreeDeathTest, StopsInsteadOfWrapping) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const RefPtr<DirNode> root(new DirNode(""));
  const RefPtr<DirNode> child = addFolder(*root, "child");
  root->directPhysical = std::numeric_limits<std::uint64_t>::max();
  root->rollup();
  child->directPhysical = 1;
  EXPECT_DEATH(root->rollup(), "overflows");
  child->totalFiles = 1;  // which the parent's total lacks
  EXPECT_DEATH(child->removeFromTree(), "underflows");
}

TEST(Tree300000Deep, IsRolledUpNamedAndFreedWithoutRecursion) {
  constexpr std::size_t depth = 300'000;
  RefPtr<DirNode> root(new DirNode("root"));
  RefPtr<DirNode> deepest = root;
  for (std::size_t level = 0; level < depth; ++level) deepest = addFolder(*deepest, "d", 2, 1);
  deepest->mtime = 99;
  root->rollup();
  EXPECT_THAT(totals(*root), ElementsAre(2 * depth, 4 * depth, depth, depth));
  EXPECT_EQ(root->newest, 99);
  EXPECT_EQ(deepest->path("/r").size(), 2 + 2 * depth);
  const RefPtr<DirNode> branch = root->subdirs.front()->subdirs.front();
  branch->removeFromTree();
  EXPECT_THAT(totals(*root), ElementsAre(2, 4, 1, 1));
  root = nullptr;
  EXPECT_THAT(totals(*branch), ElementsAre(2 * (depth - 1), 4 * (depth - 1), depth - 1, depth - 2));
}

TopFile sized(std::uint64_t logical, const std::string& path = "") {
  return {path, logical, 0, 0};
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
      heap.offer(sized(size));
      ASSERT_TRUE(std::ranges::is_heap(heap.items, std::greater(), &TopFile::logical));
    }
    std::ranges::sort(sizes, std::greater());
    sizes.resize(std::min(sizes.size(), capacity));
    std::vector<std::uint64_t> kept;
    for (const TopFile& file : sortedLargestFirst(heap.items)) kept.push_back(file.logical);
    ASSERT_EQ(kept, sizes);
  }
}

TEST(TopHeap, PrefersKeptFilesOfEqualSizeAndTheirOrder) {
  TopHeap heap(4);
  for (const char* path : {"a", "b", "c", "d"}) heap.offer(sized(5, path));
  heap.offer(sized(5, "not larger"));
  heap.offer(sized(7, "e"));  // replaces a; of the equal children the left one moves up, twice
  EXPECT_THAT(heap.items, ElementsAre(sized(5, "b"), sized(5, "d"), sized(5, "c"), sized(7, "e")));
  EXPECT_THAT(sortedLargestFirst(heap.items),
              ElementsAre(sized(7, "e"), sized(5, "b"), sized(5, "d"), sized(5, "c")));
}

TEST(FileBatch, ReturnsWhatTheBuilderGotWhateverCameBefore) {
  std::mt19937_64 random(randomSeed());
  FileBatch::Builder builder;
  std::vector<std::pair<FileBatch, std::vector<FileEntry>>> batches;
  for (const std::size_t count : {3U, 0U, 40'000U, 1U, 200U}) {
    builder.clear();
    std::vector<FileEntry> files;
    for (std::size_t index = 0; index < count; ++index) {
      files.push_back({std::string(random() % 256, static_cast<char>(random())), random(), random(),
                       static_cast<std::int64_t>(random())});
      builder.add({files.back().name, files.back().logical, files.back().physical, files.back().mtime});
    }
    batches.emplace_back(builder.build(), std::move(files));
  }
  for (const auto& [batch, files] : batches) {
    ASSERT_EQ(batch.size(), files.size());
    for (std::size_t index = 0; index < files.size(); ++index) {
      const FileBatch::File file = batch[index];
      ASSERT_EQ((FileEntry{std::string(file.name), file.logical, file.physical, file.mtime}), files[index]);
    }
  }
}

TEST(HardLinks, IdentifiesAFileByDeviceAndInode) {
  HardLinks links;
  std::set<std::uint64_t> identifiers;
  for (std::uint32_t device = 1; device <= 20; ++device) {
    for (std::uint64_t inode = 1; inode <= 500; ++inode) {
      identifiers.insert(linkIdentifier(7, device, inode));
      EXPECT_TRUE(links.firstSightingOfHardlink(device, inode));
      EXPECT_FALSE(links.firstSightingOfHardlink(device, inode));
    }
  }
  EXPECT_EQ(links.deduplicated(), 20U * 500U);
  EXPECT_EQ(identifiers.size(), 20U * 500U);
  EXPECT_EQ(linkIdentifier(7, 7, 4711), 4711U);
}

}  // namespace
}  // namespace quon::test
