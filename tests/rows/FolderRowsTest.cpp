// Rows of a folder, against a plain sort of all that could be one.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/Path.h"
#include "rows/FolderRows.h"
#include "support/SampleTree.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using Ids = std::vector<std::string>;

struct Tree {
  SampleTree sample;

  void file(DirNode& parent, const FileEntry& file, bool kept = true) {
    sample.file(parent, file);
    if (kept) parent.keptFiles.push_back(file);
  }
  RefPtr<DirNode> rolledUp() {
    sample.root().rollup();
    return sample.shared();
  }
};

Ids idsOf(const std::vector<Entry>& rows) {
  Ids ids;
  for (const Entry& row : rows) ids.push_back(row.id);
  return ids;
}

/// What may become a row, in the order of the tree, then by size.
struct Row {
  std::string id;
  std::uint64_t logical;
  std::uint64_t physical;
};

void sortLargestFirst(std::vector<Row>& rows, Metric metric) {
  std::ranges::stable_sort(rows, std::greater<>(), [metric](const Row& row) {
    return metric == Metric::logical ? row.logical : row.physical;
  });
}

TEST(ScopeEntries, AreTheLargestInOrderAndOneRowForTheRest) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 200; ++round) {
    Tree tree;
    DirNode& scope = tree.sample.folder("scope");
    const std::uint64_t most = random() % 2 == 0 ? 4 : std::uint64_t{1} << 52U;  // many equal sizes, or none
    std::vector<Row> all;
    for (std::uint64_t at = random() % 30; at > 0; --at) {
      const std::string name = "d" + std::to_string(random() % 1000 * 100 + at);
      all.push_back({"d:/r/scope/" + name, random() % most, random() % most});
      tree.file(tree.sample.folder(name, &scope), {"x", all.back().logical, all.back().physical, 1}, false);
    }
    for (std::uint64_t at = random() % 30; at > 0; --at) {
      const FileEntry file{"f" + std::to_string(at), random() % most, random() % most, 1};
      const bool isKept = random() % 3 != 0;
      tree.file(scope, file, isKept);
      if (isKept) all.push_back({"f:/r/scope/" + file.name, file.logical, file.physical});
    }
    tree.rolledUp();
    const Metric metric = random() % 2 == 0 ? Metric::logical : Metric::physical;
    sortLargestFirst(all, metric);
    const std::size_t cap = random() % 70;
    all.resize(std::min(all.size(), cap));
    Row rest{"r:/r/scope", scope.totalLogical, scope.totalPhysical};
    Ids expected;
    for (const Row& row : all) {
      expected.push_back(row.id);
      rest.logical -= row.logical;
      rest.physical -= row.physical;
    }
    const bool hasRest = rest.logical != 0 || rest.physical != 0;
    if (hasRest) expected.push_back(rest.id);
    const auto rows = scopeEntries(RefPtr<DirNode>(&scope), "/r", metric, cap);
    ASSERT_EQ(idsOf(rows), expected);
    if (hasRest) {
      EXPECT_EQ(rows.back().logical, rest.logical);
      EXPECT_EQ(rows.back().physical, rest.physical);
    }
  }
}

TEST(ScopeEntries, CarryWhatTheyStandFor) {
  Tree tree;
  DirNode& folder = tree.sample.folder("d", nullptr, 17);
  tree.file(folder, {"x", 3000, 8000, 1}, false);
  tree.file(tree.sample.root(), {"f", 2000, 1024, -4});
  tree.file(tree.sample.root(), {"small", 7, 3, 1}, false);
  const auto root = tree.rolledUp();
  const auto rows = scopeEntries(root, "", Metric::logical, 500);
  ASSERT_EQ(idsOf(rows), (Ids{"d:/d", "f:/f", "r:"}));
  EXPECT_TRUE(std::get<RefPtr<DirNode>>(rows[0].payload) == &folder);
  EXPECT_EQ(rows[0].mtime(), 17);
  EXPECT_EQ(rows[0].size(Metric::physical), 8000U);
  EXPECT_EQ(std::get<Entry::File>(rows[1].payload).container, root);
  EXPECT_EQ(rows[1].path(), "/f");
  EXPECT_EQ(rows[1].mtime(), -4);
  EXPECT_TRUE(std::holds_alternative<Entry::Rest>(rows[2].payload));
  EXPECT_EQ(rows[2].name, "smaller items");
  EXPECT_EQ(rows[2].mtime(), 0);
}

TEST(ScopeEntries, ThatOutgrewTheirFolderLeaveNoRestBelowZero) {
  Tree tree;
  tree.file(tree.sample.folder("d"), {"x", 10, 10, 1});
  tree.file(tree.sample.root(), {"f", 5, 5, 1}, false);
  const auto root = tree.rolledUp();
  root->subdirs[0]->totalLogical = 1000;  // patched, and its parent not yet
  const auto rows = scopeEntries(root, "/r", Metric::logical, 500);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1].logical, 0U);
  EXPECT_EQ(rows[1].physical, 5U);
  root->totalPhysical = 0;
  EXPECT_EQ(scopeEntries(root, "/r", Metric::logical, 500).size(), 1U);
}

TEST(LargestFiles, AreThoseOfTheWholeSubtree) {
  std::mt19937_64 random(randomSeed());
  Tree tree;
  std::vector<DirNode*> folders{&tree.sample.root()};
  for (int at = 0; at < 30; ++at) {
    folders.push_back(&tree.sample.folder(std::to_string(at), folders[random() % folders.size()]));
  }
  std::vector<Row> all;
  for (std::uint64_t at = 0; at < 300; ++at) {
    DirNode& folder = *folders[random() % folders.size()];
    // All sizes differ in both metrics.
    const FileEntry file{"f" + std::to_string(at), at * 7919 % 1000, at * 4649 % 1000, 1};
    tree.file(folder, file);
    all.push_back({"f:" + joinPath(folder.path("/r"), file.name), file.logical, file.physical});
  }
  const auto root = tree.rolledUp();
  for (const RefPtr<DirNode>& scope : {root, RefPtr<DirNode>(folders[1])}) {
    std::vector<Row> below = all;
    const std::string top = scope->path("/r");
    std::erase_if(below, [&](const Row& row) { return !isInside(row.id.substr(2), top); });
    for (const Metric metric : {Metric::logical, Metric::physical}) {
      sortLargestFirst(below, metric);
      for (const std::size_t cap : {0U, 10U, 1000U}) {
        Ids expected;
        for (std::size_t at = 0; at < std::min(cap, below.size()); ++at) expected.push_back(below[at].id);
        EXPECT_EQ(idsOf(largestFiles(scope, "/r", metric, cap, [] { return false; })->rows), expected);
      }
    }
  }
}

TEST(FolderAt, FindsFoldersByTheirBytes) {
  Tree tree;
  DirNode& a = tree.sample.folder("a");
  DirNode& below = tree.sample.folder("\xff b", &a);
  const auto root = tree.rolledUp();
  EXPECT_TRUE(folderAt(root, "") == root);
  EXPECT_TRUE(folderAt(root, "a/\xff b") == &below);
  for (const char* path : {"A", "a/\xff", "a/\xff b/c", "\xff b", ".."}) EXPECT_FALSE(folderAt(root, path));
}

}  // namespace
}  // namespace quon::test
