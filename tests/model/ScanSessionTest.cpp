// Scans and loads of the model over real folders: what is shown during them and after they end, fail or are
// cancelled.
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

class Scans : public testing::Test {
 protected:
  Scans() {
    home.top.file("tree/film", 3 * kMiB);
    home.top.file("tree/a/notes", 10);
    home.top.file("other/b", 200);
  }
  void open(const std::string& path) {
    home.restart();
    home.model->scanIfNeeded(path);
    home.finish();
  }
  [[nodiscard]] AppModel& model() { return *home.model; }
  [[nodiscard]] std::uint64_t shownBytes() { return model()._result.get()->root->totalLogical; }

  ModelHome home;
  const std::string other = home.top.folder("other");
};

TEST_F(Scans, ShowProgressAndEndReady) {
  std::vector<Phase> phases;
  const Observation watching = model()._phase.observe([&](const Phase& phase) { phases.push_back(phase); });
  home.threads.pause();
  model().scan(home.root + "/");
  EXPECT_TRUE(model().isBusy());
  EXPECT_EQ(model()._scanStats.get(), "starting…");
  home.threads.resume();
  home.finish();
  EXPECT_THAT(phases, ElementsAre(Phase::ready));
  EXPECT_EQ(model()._rootPath.get(), home.root);
  EXPECT_EQ(model()._scope.get(), model()._result.get()->root);
  EXPECT_TRUE(model()._indexedAt.get());
  EXPECT_NE(model().lastRun.index, "");
  EXPECT_THAT(model()._problems.get(), SizeIs(0));
  home.main.advance(std::chrono::seconds(1));
  EXPECT_EQ(model()._scanStats.get(), "") << "the progress goes on";
}

TEST_F(Scans, ReportWhatCannotBeScanned) {
  std::filesystem::create_directory_symlink(home.root, home.top.at("link"));
  for (const std::string& path : {home.top.at("none"), home.top.file("file", 1), home.top.at("link")}) {
    home.scan();
    model()._query.set("film");
    model().scan(path);
    home.finish();
    EXPECT_EQ(model()._scanStats.get(), "cannot scan " + path);
    EXPECT_THAT(model().problem(Problem::Kind::notScanned), StartsWith("Cannot scan " + path + ": "));
    EXPECT_EQ(model()._phase.get(), Phase::scanning);
    EXPECT_FALSE(model()._result.get() || model()._scope.get() || model().shownTree());
    EXPECT_FALSE(model()._searching.get() || model()._searchHits.get() || model()._indexedAt.get());
    EXPECT_THAT(model().entries(), SizeIs(0));
    EXPECT_THAT(model()._recentRoots.get(), ElementsAre(home.root));
  }
  home.threads.refused = true;
  model().scan(home.root);
  EXPECT_FALSE(model().isBusy());
  EXPECT_EQ(model()._scanStats.get(), "cannot scan " + home.root);
}

TEST_F(Scans, OnlyTheNewestCounts) {
  for (int round = 0; round < 20; ++round) {
    for (const std::string& root : {home.root, other, home.root, other}) model().scan(root);
    home.finish();
    home.main.runPosted();  // completions of the others may still come
    ASSERT_EQ(shownBytes(), 200U);
    ASSERT_EQ(model()._rootPath.get(), other);
    ASSERT_EQ(model()._phase.get(), Phase::ready);
  }
}

TEST_F(Scans, CancelledBeforeAnyTreeLeaveAnEmptyStateThatSaysSo) {
  home.threads.pause();
  model().scan(home.root);
  model().cancel();
  home.threads.resume();
  home.finish();
  EXPECT_TRUE(model().lastRun.cancelled);
  EXPECT_EQ(model()._result.get(), nullptr);
  EXPECT_THAT(model()._scanStats.get(), StartsWith("cancelled"));
  std::error_code absent;
  for (const auto& file : std::filesystem::directory_iterator(home.top.at("data/index"), absent)) {
    ADD_FAILURE() << file.path() << " is left";
  }
}

TEST_F(Scans, CancelledLeadBackToWhatWasShownAndFollowItAgain) {
  home.scan();
  model().jump(*model().entryFor(home.root + "/a"));
  // A batch is written to the index, and has not reached the tree when the next scan begins.
  home.settle();
  home.top.file("tree/a/more", 1000);
  home.events.push({{home.root + "/a", 0, 5}});
  home.queue(QueueName::liveEvents).runPosted();
  home.queue(QueueName::liveWork).advance(std::chrono::seconds(2));
  home.threads.pause();
  model().scan(other);
  EXPECT_EQ(model()._rootPath.get(), other);
  EXPECT_FALSE(model()._isLive.get());
  model().cancel();
  home.threads.resume();
  home.finish();
  home.settle();
  EXPECT_TRUE(model().lastRun.cancelled);
  EXPECT_EQ(model()._phase.get(), Phase::ready);
  EXPECT_EQ(model()._rootPath.get(), home.root);
  EXPECT_EQ(model()._scanStats.get(), "");
  EXPECT_EQ(model().scopePath(), home.root + "/a");
  EXPECT_EQ(shownBytes(), 3 * kMiB + 1010) << "the index knows more than the tree";
  EXPECT_TRUE(model()._isLive.get());
  home.top.file("tree/a/yet more", 100);
  home.push({{home.root + "/a", 0, 9}});
  EXPECT_EQ(shownBytes(), 3 * kMiB + 1110);
}

TEST_F(Scans, CancelledWhenTheIndexIsGoneSayThatNothingIsFollowed) {
  home.scan();
  std::filesystem::remove(model().lastRun.index);
  home.threads.pause();
  model().scan(other);
  model().cancel();
  home.threads.resume();
  home.finish();
  EXPECT_EQ(shownBytes(), 3 * kMiB + 10);
  EXPECT_EQ(model()._phase.get(), Phase::ready);
  EXPECT_THAT(model().problem(Problem::Kind::notWatched), HasSubstr("no index at "));
}

TEST_F(Scans, EndWithTheModel) {
  for (int round = 0; round < 10; ++round) {
    model().scan(home.root);
    home.restart();
  }
  home.scan();
  home.events.withholdHistoryDone = true;  // a load that would wait for half a minute
  home.restart();
  model().scanIfNeeded(home.root);
  home.restart();
  home.main.runPosted();
  EXPECT_EQ(model()._result.get(), nullptr);
}

TEST_F(Scans, ASavedIndexIsOpenedOnceAndCaughtUp) {
  home.scan();
  home.restart();
  std::vector<std::string> stats;
  const Observation watching =
      model()._scanStats.observe([&](const std::string& text) { stats.push_back(text); });
  model().scanIfNeeded(home.root);
  model().scanIfNeeded(other);
  home.finish();
  EXPECT_THAT(stats, ElementsAre("loading saved index…", ""));
  EXPECT_EQ(model()._rootPath.get(), home.root) << "the second call did something";
  EXPECT_TRUE(model().lastRun.wasLoaded);
  EXPECT_THAT(model()._toast.get().value_or(""), StartsWith("index loaded — nothing changed since "));

  home.top.file("tree/new", 50);
  home.events.history = {{home.root, 0, 7}};
  open(home.root);
  EXPECT_EQ(model()._toast.get(), "index loaded — 1 changed folders caught up");
  EXPECT_EQ(shownBytes(), 3 * kMiB + 60);
}

TEST_F(Scans, AnIndexThatCannotBeUsedIsReplacedAndTheReasonIsOfThisRootOnly) {
  home.scan();
  RawIndex(model().lastRun.index).exec("UPDATE meta SET value = '2' WHERE key = 'format'");
  open(home.root);
  EXPECT_NE(model().lastRun.notLoaded, "");
  EXPECT_THAT(model().problem(Problem::Kind::notLoaded), HasSubstr(home.root));
  EXPECT_FALSE(model().lastRun.wasLoaded);
  EXPECT_EQ(shownBytes(), 3 * kMiB + 10);
  model().scan(other);
  home.finish();
  EXPECT_EQ(model().lastRun.notLoaded, "");
  EXPECT_EQ(model().problem(Problem::Kind::notLoaded), "");

}

TEST_F(Scans, WhatTheJournalDoesNotKnowIsFoundOnTheDisk) {
  home.scan();
  home.top.file("tree/new", 50);
  home.events.history = {{home.root, EventFlag::kernelDropped, 7}};
  open(home.root);
  EXPECT_EQ(model().lastRun.notLoaded, "");
  EXPECT_EQ(model()._toast.get(), "index loaded — 1 changed folders caught up");
  EXPECT_EQ(shownBytes(), 3 * kMiB + 60);

  home.events.coverage = {.since = 0, .reason = "the limit of watches is reached"};
  open(home.root);
  home.settle();
  EXPECT_FALSE(model()._isLive.get());
  EXPECT_THAT(model().problem(Problem::Kind::notWatched), HasSubstr("the limit of watches is reached"));
  EXPECT_FALSE(model().isRecovering()) << "what cannot be watched is tried again and again";
}

TEST_F(Scans, AnIndexThatCannotBeSavedIsAProblemThatStands) {
  writeBytes(home.top.at("data"), "a file where the folder of the indexes should be");
  home.scan();
  EXPECT_EQ(shownBytes(), 3 * kMiB + 10);
  EXPECT_THAT(model().problem(Problem::Kind::notSaved), HasSubstr("could not be saved"));
  EXPECT_EQ(model().lastRun.index, "");
  home.top.file("tree/new", 7);
  home.push({{home.root, 0, 5}});
  EXPECT_EQ(shownBytes(), 3 * kMiB + 17) << "a tree without a saved index is not followed";
  std::filesystem::remove(home.top.at("data"));
  home.scan();
  home.settle();
  EXPECT_THAT(model()._problems.get(), SizeIs(0));
  EXPECT_TRUE(model()._isLive.get());
}

TEST_F(Scans, ARootBehindALinkIsTheFolderItLeadsTo) {
  home.top.file("tree/users/me/letters", 3000);
  std::filesystem::create_directory_symlink(home.root + "/users", home.top.at("home"));
  home.userHome = home.top.at("home") + "/me";
  home.restart();
  for (const std::string& path :
       {home.userHome, home.top.at("home/me/"), home.userHome + "/../me/.", std::string("~")}) {
    model().scan(path);
    home.finish();
    EXPECT_EQ(model()._rootPath.get(), home.root + "/users/me") << path;
    EXPECT_EQ(shownBytes(), 3000U) << path;
  }
  open(home.userHome);
  EXPECT_TRUE(model().lastRun.wasLoaded);
}

TEST_F(Scans, RecentRootsAndTheWelcomeAreKeptBetweenLaunches) {
  home.settle();
  EXPECT_TRUE(model()._showOnboarding.get());
  std::vector<std::string> roots;
  for (const char* name : {"1", "2", "3", "4", "5", "6", "7"}) {
    roots.insert(roots.begin(), home.top.folder(name));
    model().scan(roots.front());
    home.finish();
  }
  roots.resize(6);
  EXPECT_EQ(model()._recentRoots.get(), roots);
  model().finishOnboarding();
  EXPECT_FALSE(model().areSettingsStored());
  home.settle();
  // Another program stores a root in between; both are kept.
  home.defaults.lists["recentRoots"].insert(home.defaults.lists["recentRoots"].begin(), "/elsewhere");
  home.desktop.chosen = home.top.at("~/4");
  model().scan("~/4");
  home.finish();
  home.settle();
  home.restart();
  home.settle();
  EXPECT_FALSE(model()._showOnboarding.get());
  EXPECT_THAT(model()._recentRoots.get(),
              ElementsAre(home.top.at("4"), "/elsewhere", roots[0], roots[1], roots[2], roots[4]));
}

TEST_F(Scans, IndexesOfDeletedFoldersAreCollectedAtLaunchBesideOtherWork) {
  model().scan(home.top.folder("deleted"));
  home.finish();
  home.scan();
  std::filesystem::remove(home.top.at("deleted"));
  model().refreshIndexes();
  home.settle();
  EXPECT_THAT(model()._indexes.get(), SizeIs(2));
  open(home.root);
  // A root on a disk that does not answer holds up the catalogue, and nothing else.
  model().scheduleAgeScan();
  home.queue(QueueName::lenses).runPosted();
  home.main.runPosted();
  EXPECT_TRUE(model()._ageHits.get());
  home.settle();
  EXPECT_THAT(model()._toast.get().value_or(""), HasSubstr("1 stale index"));
  model().refreshIndexes();
  home.settle();
  EXPECT_THAT(model()._indexes.get(), SizeIs(1));
}

}  // namespace
}  // namespace quon::test
