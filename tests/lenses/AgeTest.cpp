// Ages as they are shown, and what is unchanged since a time.
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
  EXPECT_EQ(after(kDay - 1), "0d");
  EXPECT_EQ(after(60 * kDay - 1), "59d");
  EXPECT_EQ(after(365 * kDay - 1), "12 mo");
  EXPECT_EQ(after(365 * kDay), "1.0 yr");
  EXPECT_EQ(humanAge(std::numeric_limits<std::int64_t>::max(), -2), "0d");
  EXPECT_EQ(humanAge(std::numeric_limits<std::int64_t>::min(), 0), "292471208677.5 yr");
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

TEST(Untouched, ListsWhatARecursiveVisitFindsLargestFirst) {
  std::mt19937_64 random(randomSeed());
  std::size_t listed = 0;
  for (int round = 0; round < 60; ++round) {
    PathTree tree = PathTree::random(random, 80, {"a", "b", "c"});
    std::vector<DirNode*> folders{&tree.sample.root()};
    for (std::size_t at = 0; at < folders.size(); ++at) {
      for (const auto& child : folders[at]->subdirs) folders.push_back(child.get());
      for (std::uint64_t file = random() % 4; file > 0; --file)
        tree.file(*folders[at], {std::to_string(file), random() % 4, random() % 4,
                                 static_cast<std::int64_t>(random() % 40) - 3});
    }
    const RefPtr<DirNode> root = tree.rolledUp();
    const RefPtr<DirNode> scope(folders[random() % 2]);
    const auto cutoff = static_cast<std::int64_t>(random() % 45);
    std::vector<Entry> expected;
    listRecursively(scope, scope->path("/r"), cutoff, expected);
    const Metric metric = random() % 2 == 0 ? Metric::logical : Metric::physical;
    std::ranges::stable_sort(expected, std::greater<>(), [&](const Entry& row) { return row.size(metric); });
    const auto found = ageScan(scope, "/r", cutoff, metric, never);
    ASSERT_TRUE(found);
    EXPECT_EQ(*found, expected);
    listed += found->size();
  }
  EXPECT_GT(listed, 100U);
}

TEST(Untouched, ChecksForCancellationEvery1024RowsAndStopsThere) {
  for (const bool ofFiles : {false, true}) {
    for (const std::int64_t mtime : {5, 50}) {  // a row, or none
      PathTree tree;
      for (int at = 1; at < 3 * 1024; ++at) {
        if (ofFiles) {
          tree.folder("new").keptFiles.push_back({std::to_string(at), 1, 1, mtime});
        } else {
          tree.sample.folder(std::to_string(at), nullptr, mtime);
        }
      }
      if (ofFiles) tree.folder("new").mtime = 50;
      for (const int last : {1, 2, 3}) {
        int checks = 0;
        EXPECT_FALSE(ageScan(tree.rolledUp(), "/r", 10, Metric::logical, [&] { return ++checks == last; }));
        EXPECT_EQ(checks, last);
      }
    }
  }
}

TEST(Untouched, GoesToAnyDepth) {
  PathTree tree = PathTree::chain("d", 100'000);
  tree.folder("d").mtime = 200;
  const RefPtr<DirNode> root = tree.rolledUp();
  EXPECT_THAT(idsOf(*ageScan(root, "/r", 150, Metric::logical, never)), ElementsAre("d:/r/d/d"));
}

}  // namespace
}  // namespace quon::test
