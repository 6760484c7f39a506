// Observers that act on the model while they are told of a change, and what is asked for while a scan runs.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "ModelHome.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr std::uint64_t kMiB = 1048576;

class Observers : public testing::Test {
 protected:
  Observers() {
    home.top.file("tree/a/first", 3 * kMiB);
    home.top.file("other/b/second", 5 * kMiB);
  }

  /// Scans the other folder at the first notice of the field that is taken as one.
  template <typename T>
  [[nodiscard]] Observation scanOtherOnce(Observed<T>& field) {
    return field.observe([this, done = false](const T&) mutable {
      if (!std::exchange(done, true)) model.scan(other);
    });
  }

  void expectOther() {
    home.finish();
    EXPECT_EQ(model._rootPath.get(), other);
    EXPECT_EQ(model._phase.get(), Phase::ready);
    ASSERT_TRUE(model._result.get());
    EXPECT_EQ(model._result.get()->root->totalLogical, 5 * kMiB);
    EXPECT_EQ(model._scope.get(), model._result.get()->root);
    home.main.advance(std::chrono::seconds(1));
    EXPECT_EQ(model._scanStats.get(), "") << "the progress of an earlier scan goes on";
    EXPECT_EQ(home.events.requests().back().root, other);
  }

  ModelHome home;
  AppModel& model = *home.model;
  const std::string other = home.top.at("other");
};

TEST_F(Observers, MayScanWhileAScanBegins) {
  {
    const Observation watching = scanOtherOnce(model._scanStats);
    model.scan(home.root);
    expectOther();
  }
  {
    const Observation watching = scanOtherOnce(model._phase);
    model.scan(home.root);
    expectOther();
  }
  const Observation watching = scanOtherOnce(model._rootPath);
  model.scan(home.root);
  expectOther();
}

TEST_F(Observers, MayScanWhileAResultIsTakenIn) {
  std::vector<std::string> told;
  const Observation phases = model._phase.observe([&](const Phase& phase) {
    told.push_back((phase == Phase::ready ? "ready " : "scanning ") + model._rootPath.get());
  });
  const Observation watching = scanOtherOnce(model._result);
  model.scan(home.root);
  expectOther();
  EXPECT_THAT(told, ElementsAre("ready " + home.root, "scanning " + home.root, "ready " + other));
  std::vector<std::string> watched;
  for (const EventRequest& request : home.events.requests()) watched.push_back(request.root);
  EXPECT_THAT(watched, ElementsAre(home.root, other)) << "changes of one tree entered another";
}

TEST_F(Observers, MayScanWhileProgressIsTold) {
  home.threads.hold();
  model.scan(home.root);
  const Observation watching = scanOtherOnce(model._scanStats);
  home.main.advance(std::chrono::milliseconds(200));
  home.threads.release();
  expectOther();
}

TEST_F(Observers, MayAskForAFolderThatIsMissingWhileProgressIsTold) {
  home.threads.hold();
  model.scan(home.root);
  const Observation watching = model._scanStats.observe([&, done = false](const std::string&) mutable {
    if (!std::exchange(done, true)) model.scan(home.top.at("none"));
  });
  home.main.advance(std::chrono::milliseconds(200));
  home.main.advance(std::chrono::milliseconds(400));
  home.threads.release();
  home.finish();
  home.main.advance(std::chrono::seconds(1));
  EXPECT_EQ(model._scanStats.get(), "cannot scan " + home.top.at("none"));
  EXPECT_EQ(model._result.get(), nullptr);
}

TEST_F(Observers, MayCancelWhileAScanBegins) {
  const Observation watching = model._phase.observe([&](const Phase& phase) {
    if (phase == Phase::scanning) model.cancel();
  });
  home.scan();
  ASSERT_EQ(model._phase.get(), Phase::ready);
  model.scan(other);
  home.finish();
  EXPECT_TRUE(model.lastRun.cancelled);
  EXPECT_EQ(model._result.get()->root->totalLogical, 3 * kMiB);
}

TEST_F(Observers, MayScanWhileABatchIsTakenIn) {
  home.scan();
  home.liveEvents.runPosted();
  const Observation watching = scanOtherOnce(model._version);
  home.top.file("tree/a/more", 1000);
  home.events.push({{home.root + "/a", 0, 5}});
  home.liveEvents.runPosted();
  home.liveWork.advance(std::chrono::seconds(2));
  home.main.runPosted();
  expectOther();
}

TEST_F(Observers, MayCancelAScanThatGetsNoThread) {
  home.threads.refused = true;
  const Observation watching = model._scanStats.observe([&](const std::string&) { model.cancel(); });
  model.scan(home.root);
  EXPECT_FALSE(model.isBusy());
  EXPECT_EQ(model._scanStats.get(), "cannot scan " + home.root);
  EXPECT_NE(model.lastRun.failure, "");
}

TEST_F(Observers, SeeNoKindsBeforeThereIsATree) {
  EXPECT_THAT(model.kindRows().rows, SizeIs(0));
}

/// The tree before is shown until the next one is there.
class ShownMeanwhile : public Observers {
 protected:
  ShownMeanwhile() { home.scan(); }
};

TEST_F(ShownMeanwhile, RowsKeepTheirPaths) {
  const std::string folder = home.root + "/a";
  const std::string file = folder + "/first";
  home.threads.hold();
  model.scan(other);
  ASSERT_THAT(model.entries(), SizeIs(1));
  EXPECT_EQ(model.entries().front().path(), folder);
  ASSERT_TRUE(model.entryFor(file));
  EXPECT_EQ(model.entryFor(file)->path(), file);
  EXPECT_FALSE(model.entryFor(other + "/a"));
  model.copyPath(model.entries().front());
  EXPECT_EQ(home.desktop.clipboard, folder);
  model._query.set("first");
  home.searches.advance(std::chrono::seconds(1));
  home.main.runPosted();
  ASSERT_TRUE(model._searchHits.get());
  EXPECT_THAT(model._searchHits.get()->front().path(), file);
  model.clearQuery();
  home.threads.release();
  home.finish();
  EXPECT_EQ(model.entries().front().path(), other + "/b");
}

TEST_F(ShownMeanwhile, WhatIsAskedOfItNeverLandsOnTheNext) {
  model.scan(other);
  model._ageCutoff.set(1);
  home.now = std::time(nullptr) + 1000;
  model.scheduleAgeScan();
  model.scheduleNamesScan();
  model.schedulePaletteSearch("first");
  home.finish();
  ASSERT_EQ(model._result.get()->root->totalLogical, 5 * kMiB);
  home.searches.advance(std::chrono::seconds(1));
  home.settle();
  EXPECT_FALSE(model._ageHits.get());
  EXPECT_FALSE(model._ageScanning.get());
  EXPECT_FALSE(model._names.get());
  EXPECT_FALSE(model._namesLoading.get());
  EXPECT_THAT(model._paletteHits.get(), SizeIs(0)) << "of a tree that is gone";
  EXPECT_FALSE(model._paletteSearching.get());
}

}  // namespace
}  // namespace quon::test
