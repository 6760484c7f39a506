// Scans, loads, navigation, lenses and live updates of the model, over real folders.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "ModelHome.h"
#include "platform/Events.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::uint64_t kMiB = 1048576;

std::vector<std::string> namesOf(const std::vector<Entry>& rows) {
  std::vector<std::string> names;
  names.reserve(rows.size());
  for (const Entry& row : rows) names.push_back(row.name);
  return names;
}

TEST(AppModel, ScansShowProgressAndEndReady) {
  ModelHome home;
  home.top.file("tree/film", 3 * kMiB);
  home.top.file("tree/a/notes", 10);
  std::vector<Phase> phases;
  const Observation watching =
      home.model->_phase.observe([&](const Phase& phase) { phases.push_back(phase); });
  home.model->scan(home.root + "/");
  EXPECT_EQ(home.model->_phase.get(), Phase::scanning);
  EXPECT_EQ(home.model->_scanStats.get(), "starting…");
  home.main.advance(std::chrono::milliseconds(200));
  EXPECT_THAT(home.model->_scanStats.get(), HasSubstr(" dirs · "));
  home.finish();
  EXPECT_THAT(phases, ElementsAre(Phase::ready));
  EXPECT_EQ(home.model->_rootPath.get(), home.root);
  EXPECT_EQ(home.model->_scope.get(), home.model->_result.get()->root);
  EXPECT_THAT(namesOf(home.model->entries()), ElementsAre("film", "a"));
  EXPECT_EQ(home.model->_indexedAt.get().has_value(), true);
  EXPECT_NE(home.model->lastRun.index, "");
  EXPECT_EQ(home.main.pendingCount(), 0U) << "the progress goes on";
}

TEST(AppModel, WhatCannotBeScannedIsTold) {
  ModelHome home;
  for (const std::string& path : {home.top.at("none"), home.top.file("file", 1)}) {
    home.model->scan(path);
    EXPECT_FALSE(home.model->isBusy());
    EXPECT_EQ(home.model->_scanStats.get(), "cannot scan " + path);
    EXPECT_EQ(home.model->_phase.get(), Phase::scanning);
    EXPECT_EQ(home.model->_result.get(), nullptr);
    EXPECT_THAT(home.model->recentRoots(), SizeIs(0));
  }
  std::filesystem::create_directory_symlink(home.root, home.top.at("link"));
  home.model->scan(home.top.at("link"));
  EXPECT_EQ(home.model->_scanStats.get(), "cannot scan " + home.top.at("link"));
}

TEST(AppModel, AFailedScanLeavesNothingToShow) {
  ModelHome home;
  home.top.file("tree/a", 100);
  home.scan();
  AppModel& model = *home.model;
  model._query.set("a");
  model.schedulePaletteSearch("a");
  model.scheduleAgeScan();
  model.scan(home.top.at("none"));
  home.searches.advance(std::chrono::seconds(1));
  home.settle();
  EXPECT_EQ(model._phase.get(), Phase::scanning);
  EXPECT_FALSE(model._result.get() || model._scope.get() || model._searching.get());
  EXPECT_FALSE(model._searchHits.get() || model._ageHits.get() || model._indexedAt.get());
  EXPECT_THAT(model._paletteHits.get(), SizeIs(0));
  EXPECT_THAT(model.entries(), SizeIs(0));
}

TEST(AppModel, OnlyTheNewestScanCounts) {
  ModelHome home;
  home.top.file("tree/a", 100);
  home.top.file("other/b", 200);
  for (int round = 0; round < 20; ++round) {
    home.model->scan(home.root);
    home.model->scan(home.top.at("other"));
    home.model->scan(home.root);
    home.model->scan(home.top.at("other"));
    home.finish();
    ASSERT_EQ(home.model->_result.get()->root->totalLogical, 200U);
    ASSERT_EQ(home.model->_rootPath.get(), home.top.at("other"));
    // Completions of the others are still to come, and change nothing.
    home.main.runPosted();
    ASSERT_EQ(home.model->_rootPath.get(), home.top.at("other"));
    ASSERT_EQ(home.model->_phase.get(), Phase::ready);
  }
}

TEST(AppModel, ACancelledScanShowsNothingAndSavesNothing) {
  ModelHome home;
  home.top.file("tree/a", 100);
  home.model->scan(home.root);
  home.model->cancel();
  home.finish();
  if (!home.model->lastRun.cancelled) GTEST_SKIP() << "the scan was done before it could be cancelled";
  EXPECT_EQ(home.model->_result.get(), nullptr);
  EXPECT_EQ(home.model->_phase.get(), Phase::scanning);
  std::error_code absent;
  for (const auto& file : std::filesystem::directory_iterator(home.top.at("data/index"), absent)) {
    ADD_FAILURE() << file.path() << " is left";
  }
}

TEST(AppModel, EndsWhileAScanOrALoadRuns) {
  ModelHome home;
  for (int file = 0; file < 300; ++file)
    home.top.file("tree/" + std::to_string(file % 20) + "/" + std::to_string(file), 1);
  for (int round = 0; round < 10; ++round) {
    home.model->scan(home.root);
    home.restart();
  }
  home.scan();
  home.events.withholdHistoryDone = true;  // a load that would wait for half a minute
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.restart();
  home.main.runPosted();
  EXPECT_EQ(home.model->_result.get(), nullptr);
}

TEST(AppModel, OpensASavedIndexOnceAndSaysHowFarItWasCaughtUp) {
  ModelHome home;
  home.top.file("tree/a", 100);
  home.scan();
  home.restart();
  home.model->scanIfNeeded(home.root);
  EXPECT_EQ(home.model->_scanStats.get(), "loading saved index…");
  home.model->scanIfNeeded(home.top.path);
  home.finish();
  EXPECT_EQ(home.model->_rootPath.get(), home.root) << "the second call did something";
  EXPECT_TRUE(home.model->lastRun.wasLoaded);
  ASSERT_TRUE(home.model->_toast.get());
  EXPECT_THAT(*home.model->_toast.get(), StartsWith("index loaded — nothing changed since "));

  home.top.file("tree/new", 50);
  home.events.history = {{home.root, 0, 7}};
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.finish();
  EXPECT_EQ(home.model->_toast.get(), "index loaded — 1 changed folders caught up");
  EXPECT_EQ(home.model->_result.get()->root->totalLogical, 150U);
}

TEST(AppModel, AnIndexThatCannotBeUsedIsReplacedByAScan) {
  ModelHome home;
  home.top.file("tree/a", 100);
  home.scan();
  const std::string index = home.model->lastRun.index;
  home.events.history = {{home.root, EventFlag::kernelDropped, 7}};
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.finish();
  EXPECT_EQ(home.model->lastRun.notLoaded,
            "journal replay unavailable: the kernel could not report all changes");
  EXPECT_FALSE(home.model->lastRun.wasLoaded);
  EXPECT_EQ(home.model->_phase.get(), Phase::ready);

  RawIndex(index).exec("UPDATE meta SET value = '2' WHERE key = 'format'");
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.finish();
  EXPECT_FALSE(home.model->lastRun.wasLoaded);
  EXPECT_EQ(home.model->_result.get()->root->totalLogical, 100U);

  std::filesystem::remove(home.top.at("tree/a"));
  std::filesystem::remove(home.root);
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.finish();
  EXPECT_EQ(home.model->_scanStats.get(), "cannot scan " + home.root);
}

TEST(AppModel, RecentRootsAreSixNewestFirst) {
  ModelHome home;
  std::vector<std::string> roots;
  for (const char* name : {"1", "2", "3", "4", "5", "6", "7"}) {
    roots.insert(roots.begin(), home.top.folder(name));
    home.model->scan(roots.front());
    home.finish();
  }
  roots.resize(6);
  EXPECT_EQ(home.model->recentRoots(), roots);
  home.model->scan("~/4");
  home.finish();
  EXPECT_EQ(home.model->recentRoots().front(), home.top.at("4"));
  EXPECT_THAT(home.model->recentRoots(), SizeIs(6));
  home.desktop.chosen = home.top.at("1");
  home.model->openFolder();
  home.finish();
  EXPECT_EQ(home.model->_rootPath.get(), home.top.at("1"));
}

TEST(AppModel, MovesAboutInTheTree) {
  ModelHome home;
  home.top.file("tree/a/b/film", 3 * kMiB);
  home.top.file("tree/a/small", 5);
  home.scan();
  AppModel& model = *home.model;
  const auto folder = model.entryFor(home.root + "/a/b");
  ASSERT_TRUE(folder);
  model.jump(*folder);
  EXPECT_EQ(model._scope.get()->name, "b");
  model.goUp();
  EXPECT_EQ(model._scope.get()->name, "a");
  EXPECT_THAT(namesOf(model.entries()), ElementsAre("b", Entry::kRestName));
  model.jump(model.entries().back());
  EXPECT_EQ(model._scope.get()->name, "a") << "the rest leads nowhere";
  const auto film = model.entryFor(home.root + "/a/b/film");
  ASSERT_TRUE(film);
  model._showInspector.set(false);
  model.jump(*film);
  EXPECT_EQ(model._scope.get()->name, "b");
  EXPECT_EQ(model._selection.get(), "f:" + home.root + "/a/b/film");
  EXPECT_TRUE(model._showInspector.get());
  model.copyPath(*film);
  EXPECT_EQ(home.desktop.clipboard, home.root + "/a/b/film");
  EXPECT_EQ(model._toast.get(), "copied " + home.root + "/a/b/film");
  EXPECT_EQ(model.entryFor(home.root)->name, model._result.get()->root->name);
  for (const char* absent : {"/a/small", "/a/x", "/a/b/film/x", "x", "/x/y"}) {
    EXPECT_FALSE(model.entryFor(home.root + absent)) << absent;
  }
  model.goUp();
  model.goUp();
  model.goUp();
  EXPECT_EQ(model._scope.get(), model._result.get()->root);
}

TEST(AppModel, ColoursGoByTheFoldersBelowTheRoot) {
  ModelHome home;
  for (int folder = 0; folder < 11; ++folder) {
    home.top.file("tree/" + std::to_string(folder) + "/deep/file", 1000 - static_cast<std::size_t>(folder));
  }
  home.scan();
  const auto slotAt = [&](const std::string& path) {
    return home.model->topSlot(*folderAt(home.model->_result.get()->root, path));
  };
  EXPECT_EQ(slotAt(""), std::nullopt);
  for (int folder = 0; folder < 11; ++folder) {
    EXPECT_EQ(slotAt(std::to_string(folder)), folder % 9);
    EXPECT_EQ(slotAt(std::to_string(folder) + "/deep"), folder % 9);
  }
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.finish();
  EXPECT_EQ(slotAt("8/deep"), 8) << "an opened index has other colours than the scan that made it";
}

TEST(AppModel, LensesAnswerForTheTreeTheyWereAskedFor) {
  ModelHome home;
  const std::string film = home.top.file("tree/old/film.mp4", 3 * kMiB);
  home.top.file("tree/node_modules/lib.so", 2 * kMiB);
  home.scan();
  AppModel& model = *home.model;
  EXPECT_EQ(model.kindRows().rows.at(0).kind.id, "media");
  EXPECT_EQ(model.reclaimGroups(model._result.get()->root).at(0).total,
            model._result.get()->root->subdirs.at(0)->name == "node_modules"
                ? model._result.get()->root->subdirs.at(0)->totalLogical
                : model._result.get()->root->subdirs.at(1)->totalLogical);
  home.now = std::time(nullptr) + 1000;
  model._ageCutoff.set(500);
  model.scheduleAgeScan();
  EXPECT_TRUE(model._ageScanning.get());
  home.settle();
  ASSERT_TRUE(model._ageHits.get());
  EXPECT_THAT(namesOf(*model._ageHits.get()), ElementsAre("old", "node_modules"));

  // Asked for the tree before, answered after the next scan: void.
  model.scheduleAgeScan();
  model.scheduleNamesScan();
  home.scan();
  home.settle();
  EXPECT_FALSE(model._ageHits.get());
  EXPECT_FALSE(model._ageScanning.get());
  EXPECT_FALSE(model._names.get());

  model.scheduleNamesScan();
  home.settle();
  EXPECT_TRUE(model._names.get());
  EXPECT_FALSE(model._namesLoading.get());
  std::filesystem::remove(model.lastRun.index);
  model.scheduleNamesScan();
  home.settle();
  EXPECT_FALSE(model._names.get());
  EXPECT_THAT(model._namesError.get().value_or(""), HasSubstr("no index at "));
}

TEST(AppModel, ScansAndOpensARootBehindALink) {
  ModelHome home;
  home.top.file("tree/users/me/letters", 3000);
  std::filesystem::create_directory_symlink(home.root + "/users", home.top.at("home"));
  home.userHome = home.top.at("home") + "/me";
  home.restart();
  for (const std::string& path :
       {home.userHome, home.top.at("home/me/"), home.userHome + "/../me/.", std::string("~")}) {
    home.model->scan(path);
    home.finish();
    EXPECT_EQ(home.model->_rootPath.get(), home.root + "/users/me") << path;
    EXPECT_EQ(home.model->_result.get()->root->totalLogical, 3000U) << path;
  }
  home.restart();
  home.model->scanIfNeeded(home.userHome);
  home.finish();
  EXPECT_TRUE(home.model->lastRun.wasLoaded);
  EXPECT_EQ(home.model->_result.get()->root->totalLogical, 3000U);
}

TEST(AppModel, ReclaimsNothingOfAHomeBehindALink) {
  ModelHome home;
  const std::string tag = "Signature: 8a477f597d28d172789f06886806bc55";
  home.top.file("tree/users/me/letters", 3000);
  home.top.file("tree/users/me/.cache/app/blob", 2000);
  home.top.folder("tree/users/me/dots/config");
  std::filesystem::create_directory_symlink("dots/config", home.root + "/users/me/.config");
  writeBytes(home.root + "/users/me/CACHEDIR.TAG", tag);
  writeBytes(home.root + "/users/me/dots/CACHEDIR.TAG", tag);
  std::filesystem::create_directory_symlink(home.root + "/users", home.top.at("home"));
  home.userHome = home.top.at("home") + "/me";
  home.restart();
  for (const std::string& root : {home.root, home.userHome}) {
    home.model->scan(root);
    home.finish();
    const auto groups = home.model->reclaimGroups(home.model->_result.get()->root);
    ASSERT_THAT(groups, SizeIs(1)) << root;
    EXPECT_EQ(groups.front().rule.label, "app caches (~/.cache)");
    ASSERT_THAT(groups.front().nodes, SizeIs(1));
    EXPECT_EQ(groups.front().total, 2000U);
  }
}

class AppModelLive : public testing::Test {
 protected:
  AppModelLive() {
    home.top.file("tree/a/one", 100);
    home.top.file("tree/b/two", 200);
    home.scan();
    home.liveEvents.runPosted();
  }
  void push(const std::vector<FolderEvent>& list) {
    home.events.push(list);
    home.liveEvents.runPosted();
    home.liveWork.advance(std::chrono::seconds(2));
    home.main.runPosted();
  }

  ModelHome home;
  AppModel& model = *home.model;
};

TEST_F(AppModelLive, BatchesEnterTheTree) {
  const std::uint64_t version = model._version.get();
  home.top.file("tree/a/more", 1000);
  push({{home.root + "/a", 0, 5}});
  EXPECT_EQ(model._version.get(), version + 1);
  EXPECT_EQ(model._result.get()->root->totalLogical, 1300U);
  EXPECT_EQ(model.entries().front().name, "a");
}

TEST_F(AppModelLive, AViewedFolderThatWasRemovedGivesWayToTheRoot) {
  model.jump(*model.entryFor(home.root + "/b"));
  std::filesystem::rename(home.root + "/b", home.top.at("away"));
  push({{home.root, 0, 5}});
  EXPECT_EQ(model._scope.get(), model._result.get()->root);
  EXPECT_EQ(model._toast.get(), "the folder you were viewing was removed");
}

TEST_F(AppModelLive, AnOldRowLeadsToWhatLiesThereNow) {
  home.top.file("tree/b/film", 3 * kMiB);
  push({{home.root + "/b", 0, 4}});
  const Entry folder = *model.entryFor(home.root + "/b");
  const Entry film = *model.entryFor(home.root + "/b/film");
  push({{home.root + "/b", EventFlag::mustScanSubdirs, 5}});
  for (const Entry& row : {folder, film}) {
    model._scope.set(model._result.get()->root);
    model.jump(row);
    EXPECT_EQ(model._scope.get(), folderAt(model._result.get()->root, "b")) << row.id;
  }
  EXPECT_EQ(model._selection.get(), film.id);

  std::filesystem::rename(home.root + "/b", home.top.at("away"));
  push({{home.root, 0, 6}});
  model._query.set("kept");
  for (const Entry& row : {folder, film}) {
    model.jump(row);
    EXPECT_EQ(model._toast.get(), row.path() + " is no longer there");
  }
  EXPECT_EQ(model._scope.get(), model._result.get()->root);
  EXPECT_EQ(model._query.get(), "kept");
}

TEST_F(AppModelLive, AViewedFolderThatWasReplacedIsViewedOn) {
  model.jump(*model.entryFor(home.root + "/b"));
  home.top.file("tree/b/three", 7);
  push({{home.root + "/b", EventFlag::mustScanSubdirs, 5}});
  EXPECT_EQ(model._scope.get()->name, "b");
  EXPECT_EQ(model._scope.get()->totalLogical, 207U);
  EXPECT_EQ(model._scope.get()->parent, model._result.get()->root.get());
}

TEST_F(AppModelLive, LosingTrackIsTold) {
  push({{home.root, EventFlag::mustScanSubdirs, 5}});
  EXPECT_EQ(model._toast.get(), "live updates paused — deep rescan flagged at the root");
  home.scan();
  home.liveEvents.runPosted();
  home.top.file("tree/a/more", 1000);
  push({{home.root + "/a", 0, 9}});
  EXPECT_EQ(model._result.get()->root->totalLogical, 1300U) << "updates did not go on after the scan";
}

TEST_F(AppModelLive, WhatAScanMadeVoidChangesNothing) {
  home.top.file("tree/a/more", 1000);
  home.events.push({{home.root + "/a", 0, 5}});
  home.liveEvents.runPosted();
  home.liveWork.advance(std::chrono::seconds(2));  // the batch is written, and waits for the main thread
  model.scan(home.root);
  home.finish();
  home.main.runPosted();
  EXPECT_EQ(model._result.get()->root->totalLogical, 1300U);
  EXPECT_EQ(model._version.get(), 0U);
}

TEST(AppModelIndexes, OfDeletedFoldersAreCollectedAtLaunch) {
  ModelHome home;
  home.model->scan(home.top.folder("deleted"));
  home.finish();
  home.scan();
  std::filesystem::remove(home.top.at("deleted"));
  home.model->refreshIndexes();
  home.settle();
  EXPECT_THAT(home.model->_indexes.get(), SizeIs(2));
  home.restart();
  home.model->scanIfNeeded(home.root);
  home.finish();
  home.lenses.runPosted();
  home.main.runPosted();
  EXPECT_THAT(home.model->_toast.get().value_or(""), StartsWith("reclaimed "));
  EXPECT_THAT(home.model->_toast.get().value_or(""), HasSubstr("1 stale index"));
  home.model->refreshIndexes();
  home.settle();
  EXPECT_THAT(home.model->_indexes.get(), SizeIs(1));
}

}  // namespace
}  // namespace quon::test
