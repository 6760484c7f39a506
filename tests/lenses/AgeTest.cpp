// Ages as they are shown, and what has not been touched since a day.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include "PathTree.h"
#include "base/Path.h"
#include "lenses/Age.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kDay = 86'400;

bool never() {
  return false;
}

std::vector<std::string> idsOf(const std::vector<Entry>& rows) {
  std::vector<std::string> ids(rows.size());
  std::ranges::transform(rows, ids.begin(), &Entry::id);
  return ids;
}

TEST(HumanAge, StepsFromDaysToMonthsToYears) {
  const auto after = [](std::int64_t seconds) { return humanAge(1'700'000'000, 1'700'000'000 + seconds); };
  EXPECT_EQ(after(-5 * kDay), "0d");
  EXPECT_EQ(after(kDay - 1), "0d");
  EXPECT_EQ(after(12 * kDay), "12d");
  EXPECT_EQ(after(60 * kDay - 1), "59d");
  EXPECT_EQ(after(60 * kDay), "2 mo");
  EXPECT_EQ(after(365 * kDay - 1), "12 mo");
  EXPECT_EQ(after(365 * kDay), "1.0 yr");
  EXPECT_EQ(after(400 * kDay), "1.1 yr");
  EXPECT_EQ(humanAge(std::numeric_limits<std::int64_t>::max(), -2), "0d");
  EXPECT_EQ(humanAge(std::numeric_limits<std::int64_t>::min(), 0), "292471208677.5 yr");
}

TEST(Untouched, ListsAnOldFolderOnceAndOldFilesElsewhere) {
  PathTree tree;
  tree.file(tree.folder("old/below", 0, 9), {"a", 50, 1, 9});
  tree.folder("old").mtime = 9;
  DirNode& mixed = tree.folder("mixed", 0, 10);
  tree.file(mixed, {"old", 20, 3, 1});
  tree.file(mixed, {"new", 30, 4, 10});
  tree.file(mixed, {"unknown", 40, 5, 0});
  tree.file(mixed, {"before time", 40, 5, -3});
  tree.folder("unknown", 0, 0);
  const RefPtr<DirNode> root = tree.rolledUp();
  const auto rows = ageScan(root, "/r", 10, Metric::logical, never);
  ASSERT_TRUE(rows);
  EXPECT_THAT(idsOf(*rows), ElementsAre("d:/r/old", "f:/r/mixed/old"));
  EXPECT_TRUE(std::get<Entry::File>((*rows)[1].payload).container == &mixed);
  EXPECT_THAT(idsOf(*ageScan(root, "", 10, Metric::physical, never)), ElementsAre("f:/mixed/old", "d:/old"));
  EXPECT_THAT(idsOf(*ageScan(RefPtr<DirNode>(&mixed), "/r", 10, Metric::logical, never)),
              ElementsAre("f:/r/mixed/old"));
  EXPECT_THAT(*ageScan(root, "/r", 1, Metric::logical, never), IsEmpty());
}

void listRecursively(const RefPtr<DirNode>& folder, const std::string& path, std::int64_t cutoff,
                     std::vector<Entry>& rows) {
  for (const auto& child : folder->subdirs) {
    const std::string childPath = joinPath(path, child->name);
    if (child->newest >= 1 && child->newest < cutoff) {
      rows.push_back(Entry::ofFolder(child, childPath));
    } else {
      listRecursively(child, childPath, cutoff, rows);
    }
  }
  for (const FileEntry& file : folder->keptFiles) {
    if (file.mtime >= 1 && file.mtime < cutoff) rows.push_back(Entry::ofFile(file, folder, path));
  }
}

TEST(Untouched, KeepsTheOrderOfARecursiveVisitAmongEqualSizes) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 60; ++round) {
    PathTree tree = PathTree::random(random, 80, {"a", "b", "c"});
    std::vector<DirNode*> folders{&tree.sample.root()};
    for (std::size_t at = 0; at < folders.size(); ++at) {
      for (const auto& child : folders[at]->subdirs) folders.push_back(child.get());
      for (std::uint64_t file = random() % 4; file > 0; --file)
        tree.file(*folders[at], {std::to_string(file), random() % 4, random() % 4,
                                 static_cast<std::int64_t>(random() % 40)});
    }
    const RefPtr<DirNode> root = tree.rolledUp();
    const RefPtr<DirNode> scope(folders[random() % 2]);
    const auto cutoff = static_cast<std::int64_t>(random() % 45);
    std::vector<Entry> expected;
    listRecursively(scope, scope->path("/r"), cutoff, expected);
    std::ranges::stable_sort(expected, std::greater<>(), &Entry::physical);
    const auto found = ageScan(scope, "/r", cutoff, Metric::physical, never);
    ASSERT_TRUE(found);
    EXPECT_EQ(idsOf(*found), idsOf(expected));
  }
}

TEST(Untouched, AsksAtEvery1024thFolderAndStops) {
  PathTree tree;
  for (int at = 1; at < 3 * 1024; ++at) tree.sample.folder(std::to_string(at), nullptr, 50);
  int asked = 0;
  const auto count = [&asked] { return ++asked < 0; };
  EXPECT_TRUE(ageScan(tree.rolledUp(), "/r", 10, Metric::logical, count));
  EXPECT_EQ(asked, 3);
  EXPECT_FALSE(ageScan(tree.rolledUp(), "/r", 10, Metric::logical, [&asked] { return ++asked == 5; }));
  EXPECT_EQ(asked, 5);
}

TEST(Untouched, StopsAmongRowsOfOneFolder) {
  for (const bool ofFiles : {false, true}) {
    PathTree tree;
    for (int at = 1; at < 3 * 1024; ++at) {
      if (ofFiles) {
        tree.folder("new").keptFiles.push_back({std::to_string(at), 1, 1, 5});
      } else {
        tree.sample.folder(std::to_string(at), nullptr, 5);
      }
    }
    if (ofFiles) tree.folder("new").mtime = 50;
    int asked = 0;
    EXPECT_FALSE(ageScan(tree.rolledUp(), "/r", 10, Metric::logical, [&asked] { return ++asked == 2; }));
    EXPECT_EQ(asked, 2) << ofFiles;
  }
}

TEST(Untouched, GoesToAnyDepth) {
  PathTree tree = PathTree::chain("d", 100'000);
  tree.folder("d").mtime = 200;
  const RefPtr<DirNode> root = tree.rolledUp();
  EXPECT_THAT(idsOf(*ageScan(root, "/r", 150, Metric::logical, never)), ElementsAre("d:/r/d/d"));
  for (DirNode* node = root.get(); !node->subdirs.empty(); node = node->subdirs[0].get()) node->newest = 300;
  DirNode* deepest = root.get();
  while (!deepest->subdirs.empty()) deepest = deepest->subdirs[0].get();
  deepest->newest = 300;
  const auto rows = ageScan(root, "/r", 150, Metric::logical, never);
  ASSERT_EQ(rows->size(), 1U);
  EXPECT_EQ(rows->front().path(), deepest->path("/r") + "/deep.mkv");
}

}  // namespace
}  // namespace quon::test
