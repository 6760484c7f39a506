// Rows of a folder: what is listed, in which order, and what is summed up in the last row.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>

#include "base/Path.h"
#include "rows/FolderRows.h"
#include "support/SampleTree.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

/// A tree rolled up, whose folders keep their files.
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

std::vector<std::string> idsOf(const std::vector<Entry>& rows) {
  std::vector<std::string> ids;
  for (const Entry& row : rows) ids.push_back(row.id);
  return ids;
}

using Ids = std::vector<std::string>;

TEST(ScopeEntries, ListFoldersAndKeptFilesLargestFirst) {
  Tree tree;
  DirNode& small = tree.sample.folder("small", nullptr, 17);
  DirNode& large = tree.sample.folder("large");
  tree.file(small, {"x", 10, 8000, 1});
  tree.file(large, {"x", 3000, 512, 1}, false);
  tree.file(tree.sample.root(), {"f", 2000, 1024, -4});
  const auto root = tree.rolledUp();
  const auto rows = scopeEntries(root, "/r", Metric::logical, 500);
  EXPECT_EQ(idsOf(rows), (Ids{"d:/r/large", "f:/r/f", "d:/r/small"})) << "no rest when everything is listed";
  EXPECT_EQ(idsOf(scopeEntries(root, "/r", Metric::physical, 500)),
            (Ids{"d:/r/small", "f:/r/f", "d:/r/large"}));
  EXPECT_EQ(idsOf(scopeEntries(root, "", Metric::logical, 500)), (Ids{"d:/large", "f:/f", "d:/small"}));
  EXPECT_EQ(rows[1].path(), "/r/f");
  EXPECT_EQ(rows[1].mtime(), -4);
  EXPECT_EQ(rows[2].mtime(), 17);
  EXPECT_EQ(rows[2].size(Metric::physical), 8000U);
  EXPECT_EQ(std::get<Entry::File>(rows[1].payload).container, root);
  EXPECT_TRUE(std::get<RefPtr<DirNode>>(rows[0].payload) == &large);
  EXPECT_EQ(idsOf(scopeEntries(RefPtr<DirNode>(&large), "/r", Metric::logical, 500)), (Ids{"r:/r/large"}));
  EXPECT_TRUE(scopeEntries(RefPtr<DirNode>(new DirNode("empty")), "/r", Metric::logical, 500).empty());
}

TEST(ScopeEntries, TheLastRowHoldsAllThatIsNotListed) {
  Tree tree;
  for (int at = 0; at < 501; ++at) {
    tree.file(tree.sample.folder("d" + std::to_string(at)), {"x", static_cast<std::uint64_t>(at) + 10, 1, 1},
              false);
  }
  tree.file(tree.sample.root(), {"unkept", 7, 3, 1}, false);
  const auto root = tree.rolledUp();
  const auto rows = scopeEntries(root, "/r", Metric::logical, 500);
  ASSERT_EQ(rows.size(), 501U);
  EXPECT_EQ(rows[499].id, "d:/r/d1");
  const Entry& rest = rows[500];
  EXPECT_EQ(rest.name, "smaller items");
  EXPECT_EQ(rest.id, "r:/r");
  EXPECT_EQ(rest.path(), "/r");
  EXPECT_EQ(rest.logical, 10U + 7U) << "the one folder too many, and the file that is not kept";
  EXPECT_EQ(rest.physical, 1U + 3U);
  EXPECT_EQ(rest.mtime(), 0);
  EXPECT_TRUE(std::holds_alternative<Entry::Rest>(rest.payload));
  EXPECT_EQ(scopeEntries(root, "/r", Metric::logical, 501).size(), 502U) << "the file is left";
  EXPECT_EQ(idsOf(scopeEntries(root, "/r", Metric::logical, 0)), (Ids{"r:/r"}));
}

TEST(ScopeEntries, ARestOfOneMetricAloneIsShown) {
  Tree tree;
  tree.file(tree.sample.root(), {"sparse", 100, 0, 1}, false);
  const auto rows = scopeEntries(tree.rolledUp(), "/r", Metric::physical, 500);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].logical, 100U);
  EXPECT_EQ(rows[0].physical, 0U);
}

TEST(ScopeEntries, RowsThatOutgrewTheirFolderLeaveNoRest) {
  Tree tree;
  tree.file(tree.sample.folder("d"), {"x", 10, 10, 1});
  tree.file(tree.sample.root(), {"f", 5, 5, 1}, false);
  const auto root = tree.rolledUp();
  root->subdirs[0]->totalLogical = 1000;  // patched, and its parent not yet
  auto rows = scopeEntries(root, "/r", Metric::logical, 500);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1].logical, 0U) << "not below zero";
  EXPECT_EQ(rows[1].physical, 5U);
  root->totalPhysical = 0;
  EXPECT_EQ(scopeEntries(root, "/r", Metric::logical, 500).size(), 1U);
}

TEST(ScopeEntries, EqualSizesKeepFoldersFirstAndTheOrderOfTheTree) {
  Tree tree;
  Ids expected;
  for (int at = 0; at < 40; ++at) {
    const std::string name = std::to_string((at * 7) % 40);
    tree.file(tree.sample.folder(name), {"x", 5, 5, 1});
    expected.push_back("d:/r/" + name);
  }
  for (int at = 0; at < 40; ++at) {
    const std::string name = "f" + std::to_string((at * 11) % 40);
    tree.file(tree.sample.root(), {name, 5, 5, 1});
    expected.push_back("f:/r/" + name);
  }
  EXPECT_EQ(idsOf(scopeEntries(tree.rolledUp(), "/r", Metric::physical, 500)), expected);
}

TEST(ScopeEntries, RowsOfARandomFolderAddUpToIt) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 50; ++round) {
    Tree tree;
    for (std::uint64_t at = random() % 30; at > 0; --at) {
      tree.file(tree.sample.folder("d" + std::to_string(at)), {"x", random() >> 12U, random() >> 12U, 1});
      tree.file(tree.sample.root(), {"f" + std::to_string(at), random() >> 12U, random() >> 12U, 1},
                random() % 2 == 0);
    }
    const auto root = tree.rolledUp();
    for (const Metric metric : {Metric::logical, Metric::physical}) {
      const std::size_t cap = random() % 70;
      const auto rows = scopeEntries(root, "/r", metric, cap);
      std::uint64_t logical = 0;
      std::uint64_t physical = 0;
      std::set<std::string> ids;
      for (std::size_t at = 0; at < rows.size(); ++at) {
        logical += rows[at].logical;
        physical += rows[at].physical;
        EXPECT_TRUE(ids.insert(rows[at].id).second);
        const bool isRest = std::holds_alternative<Entry::Rest>(rows[at].payload);
        EXPECT_EQ(isRest, rows[at].id == "r:/r");
        if (isRest) {
          EXPECT_EQ(at + 1, rows.size());
        }
        if (at > 0 && !isRest) {
          EXPECT_GE(rows[at - 1].size(metric), rows[at].size(metric));
        }
      }
      EXPECT_EQ(logical, root->totalLogical);
      EXPECT_EQ(physical, root->totalPhysical);
      EXPECT_LE(rows.size(), cap + 1);
    }
  }
}

TEST(LargestFiles, AreThoseOfTheWholeSubtree) {
  std::mt19937_64 random(randomSeed());
  Tree tree;
  std::vector<DirNode*> folders{&tree.sample.root()};
  for (int at = 0; at < 30; ++at)
    folders.push_back(&tree.sample.folder(std::to_string(at), folders[random() % folders.size()]));
  std::multimap<std::uint64_t, std::string, std::greater<>> bySize;
  for (int at = 0; at < 300; ++at) {
    DirNode& folder = *folders[random() % folders.size()];
    const FileEntry file{"f" + std::to_string(at), random() % 1000, random() % 1000, 1};
    tree.file(folder, file);
    bySize.emplace(file.physical, "f:" + joinPath(folder.path("/r"), file.name));
  }
  const auto root = tree.rolledUp();
  const auto all = largestFiles(root, "/r", Metric::physical, 1000);
  ASSERT_EQ(all.size(), bySize.size());
  std::multimap<std::uint64_t, std::string, std::greater<>> found;
  for (std::size_t at = 0; at < all.size(); ++at) {
    found.emplace(all[at].physical, all[at].id);
    if (at > 0) {
      EXPECT_GE(all[at - 1].physical, all[at].physical);
    }
  }
  const auto ordered = [](const auto& map) {
    return std::set<std::pair<std::uint64_t, std::string>>(map.begin(), map.end());
  };
  EXPECT_EQ(ordered(found), ordered(bySize));
  const auto ten = largestFiles(root, "/r", Metric::physical, 10);
  ASSERT_EQ(ten.size(), 10U);
  EXPECT_EQ(ten.back().physical, std::next(bySize.begin(), 9)->first);
  EXPECT_TRUE(largestFiles(root, "/r", Metric::physical, 0).empty());
  const RefPtr<DirNode> below(folders[1]);
  for (const Entry& row : largestFiles(below, "/r", Metric::logical, 1000)) {
    EXPECT_TRUE(isInside(row.path(), folders[1]->path("/r"))) << row.id;
  }
}

TEST(FolderAt, FindsFoldersByTheirBytes) {
  Tree tree;
  DirNode& a = tree.sample.folder("a");
  DirNode& below = tree.sample.folder("\xff b", &a);
  const auto root = tree.rolledUp();
  EXPECT_TRUE(folderAt(root, "") == root);
  EXPECT_TRUE(folderAt(root, "a") == &a);
  EXPECT_TRUE(folderAt(root, "a/\xff b") == &below);
  EXPECT_FALSE(folderAt(root, "A"));
  EXPECT_FALSE(folderAt(root, "a/\xff"));
  EXPECT_FALSE(folderAt(root, "a/\xff b/c"));
  EXPECT_FALSE(folderAt(root, "\xff b"));
  EXPECT_FALSE(folderAt(root, ".."));
}

}  // namespace
}  // namespace quon::test
