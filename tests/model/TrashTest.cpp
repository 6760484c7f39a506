// Items that leave for the trash through the model, among edits of all kinds: whatever is shown afterwards is what a
// model that has just scanned the folder shows.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ModelHome.h"
#include "snapshot/QuonSnapshot.h"
#include "support/IndexComparison.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint64_t kMiB = 1048576;

using Rows = std::multimap<std::string, std::pair<std::uint64_t, std::uint64_t>>;

Rows rowsOf(const std::vector<Entry>& entries) {
  Rows rows;
  for (const Entry& entry : entries) rows.emplace(entry.id, std::pair(entry.logical, entry.physical));
  return rows;
}

Rows rowsOf(const std::vector<TopFile>& files) {
  Rows rows;
  for (const TopFile& file : files) rows.emplace(file.path, std::pair(file.logical, file.physical));
  return rows;
}

class Trash : public testing::Test {
 protected:
  AppModel& model() { return *home.model; }
  const DirNode& tree() { return *model()._result.get()->root; }
  std::string toast() { return model()._toast.get().value_or(""); }

  /// Looks at everything that follows the tree.
  static void look(ModelHome& at) {
    at.model->_lens.set(Lens::largest);
    at.model->_query.set("e");
    at.main.advance(std::chrono::seconds(3));
    at.settle(5);
  }

  /// "" when the index is that of a fresh scan, and the model shows what one shows that has just opened it. Which name
  /// of a file counts depends on the order of a scan, so the two trees of the scans are not compared.
  std::string differencesFromFresh() {
    ModelHome scanned(home.root);
    scanned.scan();
    const std::string index = model().shownTree()->indexURL;
    const std::string freshIndex = scanned.model->shownTree()->indexURL;
    ModelHome fresh(home.root);
    const std::string opened = fresh.top.folder("data/index") + index.substr(index.rfind('/'));
    fs::copy_file(index, opened);
    fresh.model->options.catchUp = false;
    fresh.model->scanIfNeeded(home.root);
    fresh.finish();
    EXPECT_TRUE(fresh.model->lastRun.wasLoaded) << fresh.model->lastRun.notLoaded;
    look(fresh);
    look(home);
    const auto& result = *model()._result.get();
    const auto& expected = *fresh.model->_result.get();
    std::string found = differences(*result.root, *expected.root) +
                        differences(index, freshIndex);
    if (rowsOf(result.topFiles) != rowsOf(expected.topFiles)) found += "largest files of the scan\n";
    if (result.hardlinksDeduped != expected.hardlinksDeduped) found += "hard links\n";
    if (rowsOf(*model()._largest.get()) != rowsOf(*fresh.model->_largest.get())) found += "the Largest lens\n";
    if (rowsOf(*model()._searchHits.get()) != rowsOf(*fresh.model->_searchHits.get())) found += "the search\n";
    if (snapshotOf(home) != snapshotOf(fresh)) found += "the snapshot\n";
    return found;
  }

  /// Without names, as of folders of equal size any may be among the largest.
  static std::vector<std::int64_t> snapshotOf(const ModelHome& at) {
    std::ifstream file(at.top.at("data/shared/snapshot.json"));
    const std::string text((std::istreambuf_iterator<char>(file)), {});
    const QuonSnapshot shown = QuonSnapshot::decoded(text).value();
    std::vector<std::int64_t> sizes;
    for (const QuonSnapshot::Item& folder : shown.topFolders) sizes.push_back(folder.size);
    return sizes;
  }

  ModelHome home;
};

class RandomTrash : public Trash, public testing::WithParamInterface<bool> {};

TEST_P(RandomTrash, LeavesWhatAFreshScanShows) {
  const std::uint64_t seed = randomSeed();
  std::mt19937_64 random(seed);
  const auto below = [&](std::size_t bound) { return static_cast<std::size_t>(random() % bound); };
  if (GetParam()) {
    home.userHome = home.root + "/home";
    fs::create_directories(home.userHome);
    home.restart();
  }
  TreeEditor editor(home.root, seed);
  editor.populate(120);
  home.scan();
  home.settle();
  std::size_t moved = 0;
  for (std::uint64_t round = 1; round <= 25; ++round) {
    for (std::size_t edits = below(8); edits > 0; --edits) editor.edit();
    std::vector<FolderEvent> events = editor.takeEvents();
    for (FolderEvent& event : events) event.id = round;
    home.push(events);
    home.settle();
    std::vector<RefPtr<DirNode>> folders{model()._result.get()->root};
    for (std::size_t at = 0; at < folders.size(); ++at) {
      folders.insert(folders.end(), folders[at]->subdirs.begin(), folders[at]->subdirs.end());
    }
    std::vector<Entry> chosen;
    for (std::size_t count = 1 + below(3); count > 0; --count) {
      const auto rows = model().scopeEntries(folders[below(folders.size())], 500);
      if (!rows.empty()) chosen.push_back(rows[below(rows.size())]);
    }
    // Small files have no rows: they are moved by their paths.
    std::vector<TrashItem> small;
    for (const auto& each : fs::recursive_directory_iterator(home.root)) {
      if (!each.is_directory() && below(40) == 0) small.push_back({each.path().string(), {}});
    }
    model().trash(chosen);
    model().trash(small);
    home.settle();
    ASSERT_FALSE(model()._trashing.get());
    home.settle();
    if (model()._trashed.get()) moved += model()._trashed.get()->moved.size();
    ASSERT_EQ(differencesFromFresh(), "") << "round " << round << ", last toast: " << toast();
  }
  EXPECT_GT(moved, 10U);
}

INSTANTIATE_TEST_SUITE_P(OutsideTheRootAndBelowIt, RandomTrash, testing::Bool(),
                         [](const auto& below) { return below.param ? "TrashBelow" : "TrashOutside"; });

TEST_F(Trash, SaysWhatItFreesAndLeavesTheSelection) {
  home.top.file("tree/films/a.mp4", 2 * kMiB);
  home.top.file("tree/films/b.mp4", 3 * kMiB);
  fs::create_hard_link(home.root + "/films/b.mp4", home.root + "/b again.mp4");
  home.scan();
  home.settle();
  model()._selection.set("f:" + home.root + "/films/a.mp4");
  const Entry film = *model().entryFor(home.root + "/films/a.mp4");
  model().trash(film);
  EXPECT_TRUE(model()._trashing.get());
  home.settle();
  EXPECT_THAT(toast(), HasSubstr("trashed a.mp4 — "));
  EXPECT_THAT(toast(), HasSubstr(" freed once the Trash is emptied"));
  EXPECT_EQ(model()._selection.get(), std::nullopt);
  EXPECT_FALSE(fs::exists(home.root + "/films/a.mp4"));
  EXPECT_EQ(differencesFromFresh(), "");

  // Whichever of its names has the sizes: they move to the other one, and nothing is freed.
  model().trash(*model().entryFor(home.root + "/films"));
  home.settle();
  EXPECT_THAT(toast(), HasSubstr("trashed films — 0 B freed"));
  EXPECT_EQ(tree().totalLogical, 3 * kMiB);
  EXPECT_EQ(differencesFromFresh(), "");
}

TEST_F(Trash, MovesOnlyWhatWasShown) {
  const std::string film = home.top.file("tree/film", 2 * kMiB);
  const std::string folder = home.top.folder("tree/folder");
  home.scan();
  home.settle();
  const Entry shownFilm = *model().entryFor(film);
  const Entry shownFolder = *model().entryFor(folder);
  fs::resize_file(film, 3 * kMiB);
  fs::last_write_time(folder, fs::file_time_type::clock::now() - std::chrono::hours(5));
  model().trash({shownFilm, shownFolder});
  home.settle();
  EXPECT_EQ(toast(), "trash failed — 2 items could not be moved");
  EXPECT_TRUE(fs::exists(film) && fs::exists(folder));
  EXPECT_EQ(differencesFromFresh(), "") << "what changed is not shown";
  model().trash(shownFilm);
  home.settle();
  EXPECT_EQ(toast(), "trash failed: it changed since it was shown");
  model().trash(*model().entryFor(film));
  home.settle();
  EXPECT_FALSE(fs::exists(film));
}

TEST_F(Trash, OfSeveralTellsWhatFailedAndMovesNestedItemsOnce) {
  home.top.file("tree/a/b/film", 2 * kMiB);
  home.top.file("tree/c", 2 * kMiB);
  home.scan();
  home.settle();
  const std::vector<Entry> chosen{*model().entryFor(home.root + "/a/b/film"), *model().entryFor(home.root + "/a"),
                                  *model().entryFor(home.root + "/a/b"), *model().entryFor(home.root + "/c"),
                                  *model().entryFor(home.root)};
  model().trash(chosen);
  home.settle();
  EXPECT_THAT(toast(), HasSubstr("trashed 2 items — "));
  EXPECT_THAT(toast(), HasSubstr(" — 1 failed to be moved"));
  ASSERT_THAT(model()._trashed.get()->failed, SizeIs(1));
  EXPECT_EQ(model()._trashed.get()->failed.front().reason, "it is the folder that was scanned");
  EXPECT_EQ(model()._trashed.get()->freed.files, 2U);
  EXPECT_EQ(differencesFromFresh(), "");
}

TEST_F(Trash, OfAFolderThatABatchIsAboutToReplace) {
  home.top.file("tree/a/b/film", 2 * kMiB);
  home.scan();
  home.settle();
  home.top.file("tree/a/b/new", 5);
  const Entry row = *model().entryFor(home.root + "/a");
  home.events.push({{home.root + "/a", EventFlag::mustScanSubdirs, 5}, {home.root + "/a/b", 0, 6}});
  home.queue(QueueName::liveEvents).runPosted();
  model().trash(row);
  home.settle();
  home.settle(5);
  EXPECT_FALSE(fs::exists(home.root + "/a"));
  EXPECT_EQ(differencesFromFresh(), "");
}

TEST_F(Trash, WhileAScanHasPassedTheItemLeavesTheNewTreeTrue) {
  const std::string film = home.top.file("tree/a/film", 2 * kMiB);
  home.scan();
  home.settle();
  const Entry row = *model().entryFor(film);
  home.events.coverage = {.since = 0, .reason = "nobody records"};  // nothing else reports the change
  model().scan(home.root);
  home.main.runUntil([&] { return !model().buildingFile().empty() || !model().isBusy(); });
  model().trash(row);
  home.queue(QueueName::trash).runPosted();
  ASSERT_FALSE(fs::exists(film));
  home.finish();
  home.settle();
  home.settle(5);
  EXPECT_EQ(model().entryFor(film), std::nullopt);
}

TEST_F(Trash, FromATreeWithoutAnIndexLeavesTheTreeTrue) {
  home.top.file("tree/a/film", 2 * kMiB);
  home.top.file("tree/b", 3 * kMiB);
  model().options.saveIndex = false;
  home.scan();
  home.settle();
  model().trash({*model().entryFor(home.root + "/a"), *model().entryFor(home.root + "/b")});
  home.settle();
  EXPECT_EQ(tree().totalFiles, 0U);
  EXPECT_EQ(tree().totalDirs, 0U);
  EXPECT_EQ(tree().totalLogical, 0U);
  EXPECT_THAT(model()._result.get()->topFiles, IsEmpty());
}

TEST_F(Trash, AskedForFromWithinANotification) {
  for (const char* name : {"tree/a", "tree/b", "tree/c"}) home.top.file(name, 2 * kMiB);
  home.scan();
  home.settle();
  int rounds = 0;
  const Observation each = model()._version.observe([&](std::uint64_t) {
    if (++rounds > 2) return;
    model().trash(model().entries().front());
  });
  model().trash(model().entries().front());
  for (int turn = 0; turn < 4; ++turn) home.settle();
  EXPECT_EQ(tree().totalFiles, 0U);
  EXPECT_EQ(differencesFromFresh(), "");
}

}  // namespace
}  // namespace quon::test
