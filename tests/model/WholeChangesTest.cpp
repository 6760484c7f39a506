// A view that reads everything and asks for everything from inside every notification: what it sees is whole,
// and what it asks for takes effect.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>

#include "ModelHome.h"
#include "base/Path.h"
#include "platform/Events.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr std::uint64_t kMiB = 1048576;

/// Checks at each change that whatever the model shows belongs to one tree and is on the disk.
class Checker {
 public:
  explicit Checker(AppModel& its) : model(its) {
    observe(model._phase);
    observe(model._result);
    observe(model._scope);
    observe(model._version);
    observe(model._rootPath);
    observe(model._scanStats);
    observe(model._indexedAt);
    observe(model._searchHits);
    observe(model._paletteHits);
    observe(model._ageHits);
    observe(model._largest);
    observe(model._reclaim);
    observe(model._kinds);
    observe(model._problems);
    model.onLiveEvent = [this](const LiveWatcher::Event&) { check(); };
  }
  ~Checker() { model.onLiveEvent = nullptr; }
  Checker(const Checker&) = delete;
  Checker& operator=(const Checker&) = delete;

  int checks = 0;
  int rows = 0;
  bool asks = true;  ///< for everything anew, in the middle of each round

 private:
  template <typename T>
  void observe(Observed<T>& field) {
    observations.push_back(field.observe([this](const T&) { check(); }));
  }
  void check() {
    ++checks;
    const ShownTreeRef& tree = model.shownTree();
    ASSERT_EQ(tree != nullptr, model._result.get() != nullptr);
    ASSERT_EQ(tree != nullptr, model._scope.get() != nullptr);
    if (tree) {
      ASSERT_EQ(tree->result, model._result.get());
      ASSERT_TRUE(model._scope.get()->isWithin(*tree->rootNode()));
      ASSERT_EQ(model.scopePath(), tree->pathOf(*model._scope.get()));
      waitForAReader(*tree);
    }
    checkRows(model.entries());
    checkRows(model._paletteHits.get());
    for (const auto* hits : {&model._searchHits, &model._ageHits, &model._largest}) {
      if (hits->get()) checkRows(*hits->get());
    }
    if (!asks) return;
    model._lens.set(kLenses.at(static_cast<std::size_t>(checks) % 5));
    model.scheduleAgeScan();
    model.scheduleSearch();
    model.schedulePaletteSearch("film");
  }
  void checkRows(const std::vector<Entry>& list) {
    for (const Entry& row : list) {
      ++rows;
      EXPECT_TRUE(isInside(row.path(), model.shownTree()->root.path())) << row.id;
      EXPECT_TRUE(std::filesystem::exists(row.path())) << row.id;
    }
  }
  /// Observers run outside the gate: what waits there for a reader ends.
  static void waitForAReader(const ShownTree& tree) {
    std::thread([&tree] { const TreeGate::Reading reading(*tree.gate); }).join();
  }

  AppModel& model;
  std::vector<Observation> observations;
};

class WholeChanges : public testing::Test {
 protected:
  WholeChanges() {
    home.top.file("tree/a/b/film", 3 * kMiB);
    home.top.file("tree/a/notes", 2 * kMiB);
    home.top.file("other/c/film", 5 * kMiB);
  }
  /// Scans the other folder at the first change of the field.
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
    home.settle();
    home.main.advance(std::chrono::seconds(1));
    EXPECT_EQ(model._scanStats.get(), "") << "the progress of an earlier scan goes on";
    EXPECT_EQ(home.events.requests().back().root, other);
  }

  ModelHome home;
  AppModel& model = *home.model;
  const std::string other = home.top.at("other");
};

TEST_F(WholeChanges, AreAllThatObserversSee) {
  home.now = std::time(nullptr) + 1000;
  model._ageCutoff.set(1);
  model._query.set("film");
  Checker checker(model);
  home.scan();
  home.settle(1);
  model.scan(other);
  home.finish();
  home.settle(1);
  model.scan(home.root);
  home.finish();
  home.settle(1);
  model.jump(*model.entryFor(home.root + "/a/b"));
  model._query.set("film");
  home.settle(1);
  home.top.file("tree/a/b/film two", 2 * kMiB);
  home.push({{home.root + "/a", EventFlag::mustScanSubdirs, 5}});
  home.settle(1);
  checker.asks = false;
  home.settle(1);
  checker.asks = true;
  EXPECT_EQ(model.scopePath(), home.root + "/a/b");
  ASSERT_TRUE(model._searchHits.get());
  EXPECT_THAT(*model._searchHits.get(), SizeIs(2));
  model.scan(home.top.at("none"));
  home.finish();
  home.settle(1);
  home.scan();
  home.threads.pause();
  model.scan(other);
  model.cancel();
  home.threads.resume();
  home.finish();
  home.settle(1);
  EXPECT_EQ(model._rootPath.get(), home.root);
  EXPECT_GT(checker.checks, 50);
  EXPECT_GT(checker.rows, 100);
}

TEST_F(WholeChanges, AScanFromAnyNotificationIsTheOneThatCounts) {
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
  {
    const Observation watching = scanOtherOnce(model._result);
    std::vector<std::string> phases;
    const Observation recording = model._phase.observe([&](const Phase& phase) {
      phases.push_back((phase == Phase::ready ? "ready " : "scanning ") + model._rootPath.get());
    });
    model.scan(home.root);
    expectOther();
    EXPECT_THAT(phases, ElementsAre("scanning " + home.root, "ready " + home.root, "scanning " + other,
                                    "ready " + other));
  }
  home.scan();
  const Observation watching = scanOtherOnce(model._version);
  home.top.file("tree/a/more", 1000);
  home.push({{home.root + "/a", 0, 5}});
  expectOther();
}

TEST_F(WholeChanges, AnObserverMayCancelWhileAScanBegins) {
  home.scan();
  home.threads.pause();
  int cancelled = 0;
  const Observation watching = model._phase.observe([&](const Phase& phase) {
    if (phase != Phase::scanning) return;
    model.cancel();
    ++cancelled;
    home.threads.resume();
  });
  model.scan(other);
  home.finish();
  EXPECT_EQ(cancelled, 1);
  EXPECT_EQ(model._rootPath.get(), home.root);
  EXPECT_EQ(model._phase.get(), Phase::ready);
  EXPECT_EQ(model._result.get()->root->totalLogical, 5 * kMiB);
  home.settle();
  EXPECT_TRUE(model._isLive.get());
}

TEST_F(WholeChanges, TheTreeBeforeKeepsItsPathsWhileAnotherRootIsScanned) {
  home.scan();
  const std::string file = home.root + "/a/b/film";
  home.threads.pause();
  model.scan(other);
  ASSERT_THAT(model.entries(), SizeIs(1));
  EXPECT_EQ(model.entries().front().path(), home.root + "/a");
  EXPECT_FALSE(model.entryFor(other + "/c"));
  model.copyPath(*model.entryFor(file));
  EXPECT_EQ(home.desktop.clipboard, file);
  model._query.set("film");
  model._lens.set(Lens::largest);
  home.settle(1);
  ASSERT_TRUE(model._searchHits.get());
  EXPECT_EQ(model._searchHits.get()->front().path(), file);
  EXPECT_EQ(model._largest.get()->front().path(), file);
  model._query.set("");
  // Asked of the tree before, answered when the next is there: void.
  model.scheduleAgeScan();
  model.schedulePaletteSearch("notes");
  home.threads.resume();
  home.finish();
  home.settle(1);
  EXPECT_EQ(model._largest.get()->front().path(), other + "/c/film") << "the shown lens follows";
  EXPECT_FALSE(model._ageHits.get() || model._ageScanning.get());
  EXPECT_THAT(model._paletteHits.get(), SizeIs(0));
  EXPECT_EQ(model.entries().front().path(), other + "/c");
}

}  // namespace
}  // namespace quon::test
