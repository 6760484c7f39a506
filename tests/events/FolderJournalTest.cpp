// The marks of changed folders, within their bound, held against a list of every change.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/Path.h"
#include "journal/FolderJournal.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

struct Change {
  std::string path;
  std::uint64_t id;
  bool deep;
};

/// True when one of the events has whoever refreshes its folder see the change.
bool isCovered(const Change& change, const std::vector<FolderEvent>& events) {
  std::string there = change.path;
  while (!fs::exists(there)) there = parentPath(there);
  return std::ranges::any_of(events, [&](const FolderEvent& event) {
    const bool deep = (event.flags & EventFlag::mustScanSubdirs) != 0;
    return (event.path == there && (deep || !change.deep || there != change.path)) ||
           (deep && isInside(there, event.path));
  });
}

TEST(FolderJournal, CoversEveryChangeWithinItsBoundFromWhereItClaimsTo) {
  constexpr std::size_t kBound = 64;
  constexpr int kEdits = 600;
  const TempFolder temp;
  std::mt19937_64 random(randomSeed());
  FolderJournal journal(temp.path, kBound);
  journal.begin(1);
  std::vector<Change> all;
  std::uint64_t id = 1;
  const auto mark = [&](const std::string& path, bool deep) {
    all.push_back({path, ++id, deep});
    journal.mark(path, id, deep);
  };
  int resumed = 0;
  for (int edit = 0; edit < kEdits; ++edit) {
    const std::string outer = temp.at("f" + std::to_string(random() % 30));
    const std::string inner = outer + "/g" + std::to_string(random() % 5);
    for (const std::string& path : {outer, inner}) {
      if (!fs::create_directory(path)) continue;
      mark(std::string(parentPath(path)), false);
      mark(path, true);
    }
    mark(random() % 3 == 0 ? outer : inner, false);
    if (random() % 3 == 0) {
      const std::string& gone = random() % 2 == 0 ? inner : outer;
      fs::remove_all(gone);
      mark(std::string(parentPath(gone)), false);
    }
    ASSERT_LE(journal.size(), kBound);
    const std::uint64_t since = id - std::min(id - 1, random() % 100);
    if (since < journal.since()) continue;
    ++resumed;
    const std::vector<FolderEvent> events = journal.changesSince(since);
    for (const FolderEvent& event : events) ASSERT_TRUE(fs::exists(event.path)) << event.path;
    for (auto change = all.rbegin(); change != all.rend() && change->id > since; ++change)
      ASSERT_TRUE(isCovered(*change, events)) << change->path << " " << change->id << " since " << since;
  }
  EXPECT_GT(journal.since(), 1U) << "the bound was never reached";
  EXPECT_GT(resumed, kEdits / 4);
}

}  // namespace
}  // namespace quon::test
