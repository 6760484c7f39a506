#include <algorithm>
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
#include "scan/Progress.h"
#include "scan/TopHeap.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using testing::ElementsAre;

RefPtr<DirNode> addFolder(DirNode& parent, const std::string& name) {
  RefPtr<DirNode> child(new DirNode(name));
  child->parent = &parent;
  parent.subdirs.push_back(child);
  return child;
}

void setFiles(DirNode& node, std::uint64_t logical, std::uint64_t physical, std::uint64_t files) {
  node.directLogical = logical;
  node.directPhysical = physical;
  node.directFiles = files;
}

std::vector<std::uint64_t> totals(const DirNode& node) {
  return {node.totalLogical, node.totalPhysical, node.totalFiles, node.totalDirs};
}

/// root/docs/x beside root/other, with 1000 + 200 + 30 + 4 bytes.
class Tree : public testing::Test {
 protected:
  Tree() {
    setFiles(*root, 1000, 2000, 1);
    setFiles(*docs, 200, 400, 2);
    setFiles(*x, 30, 60, 3);
    setFiles(*other, 4, 8, 4);
    root->rollup();
  }

  RefPtr<DirNode> root{new DirNode("never shown")};
  RefPtr<DirNode> docs = addFolder(*root, "docs");
  RefPtr<DirNode> x = addFolder(*docs, "x");
  RefPtr<DirNode> other = addFolder(*root, "other");
};

TEST_F(Tree, SubtractsAFileFromAllAboveAndStopsAtZero) {
  x->keptFiles = {{"twice", 10, 20, 5}, {"stays", 1, 1, 1}, {"twice", 9, 9, 9}};
  x->newest = root->newest = 5;
  x->subtractFile({"twice", 10, 20, 5});
  EXPECT_THAT(x->keptFiles, ElementsAre(FileEntry{"stays", 1, 1, 1}));
  EXPECT_THAT(totals(*x), ElementsAre(20, 40, 2, 0));
  EXPECT_THAT(totals(*docs), ElementsAre(220, 440, 4, 1));
  EXPECT_THAT(totals(*root), ElementsAre(1224, 2448, 9, 3));
  EXPECT_EQ(docs->directLogical, 200U);
  EXPECT_EQ(x->directFiles, 2U);
  EXPECT_EQ(root->newest, 5);

  other->subtractFile({"huge", 500, 5, 0});
  EXPECT_EQ(other->directLogical, 0U);
  EXPECT_THAT(totals(*other), ElementsAre(0, 3, 3, 0));
  EXPECT_THAT(totals(*root), ElementsAre(724, 2443, 8, 3));
  for (int round = 0; round < 5; ++round) other->subtractFile({"huge", 500, 5, 0});
  EXPECT_THAT(totals(*other), ElementsAre(0, 0, 0, 0));
  EXPECT_THAT(totals(*root), ElementsAre(0, 2418, 3, 3));
}

TEST_F(Tree, RemovesASubtreeFromAllAbove) {
  const RefPtr<DirNode> twin = addFolder(*root, "docs");
  root->rollup();
  twin->removeFromTree();
  EXPECT_THAT(root->subdirs, ElementsAre(docs, other));
  root->removeFromTree();
  EXPECT_THAT(totals(*root), ElementsAre(1234, 2468, 10, 3));
  docs->removeFromTree();
  EXPECT_THAT(totals(*root), ElementsAre(1004, 2008, 5, 1));
  EXPECT_THAT(root->subdirs, ElementsAre(other));
  EXPECT_EQ(docs->parent, nullptr);
  EXPECT_THAT(totals(*docs), ElementsAre(230, 460, 5, 1));
  docs->removeFromTree();
  EXPECT_THAT(totals(*root), ElementsAre(1004, 2008, 5, 1));
}

TEST_F(Tree, ANodeHeldElsewhereOutlivesItsParent) {
  root = nullptr;
  EXPECT_EQ(docs->parent, nullptr);
  EXPECT_EQ(x->parent, docs.get());
  EXPECT_EQ(x->path("/r"), "/r/x");
  docs = nullptr;
  EXPECT_EQ(x->path("/r"), "/r");
}

TEST(TreeDeathTest, StopsInsteadOfWrapping) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
  const RefPtr<DirNode> root(new DirNode(""));
  const RefPtr<DirNode> child = addFolder(*root, "child");
  root->directPhysical = largest;
  root->rollup();
  EXPECT_EQ(root->totalPhysical, largest);
  child->directPhysical = 1;
  EXPECT_DEATH(root->rollup(), "overflows");
  child->totalFiles = 1;  // of which the parent knows nothing
  EXPECT_DEATH(child->removeFromTree(), "underflows");
}

TEST(Tree100000Deep, IsRolledUpNamedAndFreedWithoutRecursion) {
  constexpr std::size_t depth = 300'000;
  RefPtr<DirNode> root(new DirNode("root"));
  RefPtr<DirNode> deepest = root;
  for (std::size_t level = 0; level < depth; ++level) {
    deepest = addFolder(*deepest, "d");
    setFiles(*deepest, 2, 3, 1);
  }
  deepest->mtime = 99;
  root->rollup();
  EXPECT_THAT(totals(*root), ElementsAre(2 * depth, 3 * depth, depth, depth));
  EXPECT_EQ(root->newest, 99);
  EXPECT_EQ(deepest->path("/r").size(), 2 + 2 * depth);
  deepest->subtractFile({"f", 2, 3, 0});
  const RefPtr<DirNode> branch = root->subdirs.front()->subdirs.front();
  branch->removeFromTree();
  EXPECT_THAT(totals(*root), ElementsAre(2, 3, 1, 1));
  root = nullptr;
  EXPECT_THAT(totals(*branch), ElementsAre(2 * (depth - 2), 3 * (depth - 2), depth - 2, depth - 2));
}

TopFile sized(std::uint64_t logical, const std::string& path = "") {
  return {path, logical, 0, 0};
}

std::vector<std::uint64_t> sortedSizes(const std::vector<TopFile>& files) {
  std::vector<std::uint64_t> sizes;
  for (const TopFile& file : files) sizes.push_back(file.logical);
  std::ranges::sort(sizes);
  return sizes;
}

TEST(TopHeap, KeepsTheLargestAndPrefersWhatItHolds) {
  TopHeap none(0);
  none.offer(sized(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_TRUE(none.items.empty());
  EXPECT_FALSE(none.wouldKeep(1));

  TopHeap three(3);
  for (const std::uint64_t size : {5U, 1U, 7U, 7U, 2U}) three.offer(sized(size, "first"));
  EXPECT_THAT(sortedSizes(three.items), ElementsAre(5, 7, 7));
  EXPECT_FALSE(three.wouldKeep(5));
  three.offer(sized(5, "late"));
  three.offer(sized(7, "newer"));  // takes the place of the 5, as the only one that is smaller
  three.offer(sized(7, "late"));
  EXPECT_THAT(three.items, testing::Not(testing::Contains(sized(7, "late"))));
  EXPECT_THAT(sortedSizes(three.items), ElementsAre(7, 7, 7));
}

TEST(TopHeap, HoldsWhatASortWouldPutFirst) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 300; ++round) {
    const std::size_t capacity = random() % 40;
    const std::uint64_t range = 1 + random() % 100;  // small ranges make many ties
    TopHeap heap(static_cast<std::int64_t>(capacity));
    std::vector<std::uint64_t> sizes(random() % 200);
    for (std::uint64_t& size : sizes) {
      size = random() % range;
      heap.offer(sized(size));
      for (std::size_t at = 1; at < heap.items.size(); ++at) {
        ASSERT_LE(heap.items[(at - 1) / 2].logical, heap.items[at].logical);
      }
    }
    std::ranges::sort(sizes);
    if (sizes.size() > capacity)
      sizes.erase(sizes.begin(), sizes.end() - static_cast<std::ptrdiff_t>(capacity));
    ASSERT_EQ(sortedSizes(heap.items), sizes);
  }
  const std::vector<TopFile> ordered = sortedLargestFirst({sized(1), sized(2, "a"), sized(3), sized(2, "b")});
  EXPECT_THAT(ordered, ElementsAre(sized(3), sized(2, "a"), sized(2, "b"), sized(1)));
}

TEST(FileBatch, GivesBackWhatTheBuilderWasGivenWhateverCameBefore) {
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

TEST(HardLinks, KnowsAFileByDeviceAndInode) {
  HardLinks links;
  for (const std::uint32_t device : {1U, 2U}) {
    for (const std::uint64_t inode : {1ULL, 65ULL, 1ULL << 40U}) {  // of one shard, but for the last
      EXPECT_TRUE(links.firstSightingOfHardlink(device, inode));
      EXPECT_FALSE(links.firstSightingOfHardlink(device, inode));
    }
  }
  EXPECT_EQ(links.deduplicated(), 6U);

  EXPECT_EQ(linkIdentifier(7, 7, 4711), 4711U);
  std::set<std::uint64_t> identifiers;
  for (std::uint32_t device = 1; device <= 20; ++device) {
    for (std::uint64_t inode = 1; inode <= 500; ++inode) identifiers.insert(linkIdentifier(7, device, inode));
  }
  EXPECT_EQ(identifiers.size(), 20U * 500U);
}

TEST(Progress, NamesTheLastFolderThoughTheTreeIsGone) {
  Progress progress;
  EXPECT_EQ(progress.snapshot().currentPath, "");
  progress.begin("/r");
  {
    const RefPtr<DirNode> root(new DirNode(""));
    progress.folderFinished(*addFolder(*root, "child"));
    progress.end();
  }
  EXPECT_EQ(progress.snapshot().currentPath, "/r/child");
}

}  // namespace
}  // namespace quon::test
