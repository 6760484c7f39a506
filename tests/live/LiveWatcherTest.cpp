// The watcher's state machine, driven by a manual clock, scripted events and a real index of a real folder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <variant>
#include <vector>

#include "ScannedTree.h"
#include "base/ManualQueue.h"
#include "live/LiveWatcher.h"
#include "platform/Events.h"
#include "support/ChildProcess.h"
#include "support/FakeEvents.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using Seconds = std::chrono::duration<double>;

class LiveWatcherTest : public ScannedTree {
 protected:
  LiveWatcherTest() {
    tree.file("a/one", 100);
    tree.file("b/two", 200);
    begin();
  }

  void begin() {
    index = scan("watched");
    loaded.emplace(load(index));
    loaded->lastEventId = 1;  // below those of the events that are made here
  }

  void watch(std::size_t maxChanges = 20000) {
    watcher = std::make_unique<LiveWatcher>(
        LiveWatcher::Services{platform, events, callbacks, workQueue,
                              [this](std::function<void()> commit) { commits.post(std::move(commit)); },
                              [this](const LiveWatcher::Event& event) { reported.push_back(event); },
                              [this] { return Seconds(workQueue.now()); }},
        LiveWatcher::Options{.index = indexed(index),
                             .tree = loaded->result.root,
                             .topFiles = loaded->result.topFiles,
                             .sinceEventId = loaded->lastEventId,
                             .revision = loaded->revision,
                             .maxChanges = maxChanges});
  }

  void deliver(const std::vector<FolderEvent>& list) {
    events.push(list);
    callbacks.runPosted();
  }

  /// Time passes on the work queue; what is meant for the tree is applied.
  void pass(double seconds) {
    workQueue.advance(Seconds(seconds));
    commits.runPosted();
  }

  std::string rescanReason() {
    for (const LiveWatcher::Event& event : reported) {
      if (const auto* reason = std::get_if<LiveWatcher::NeedsRescan>(&event)) return reason->reason;
    }
    return "";
  }

  std::vector<FolderEvent> burst(std::size_t count) {
    std::vector<FolderEvent> list;
    for (std::size_t number = 0; number < count; ++number) {
      list.push_back({root + "/a/" + std::to_string(number), 0, number + 1});
    }
    return list;
  }

  std::string index;
  std::optional<Loaded> loaded;
  FakeEvents events;
  ManualBackgroundQueue callbacks;
  ManualBackgroundQueue workQueue;
  ManualBackgroundQueue commits;
  std::vector<LiveWatcher::Event> reported;
  std::unique_ptr<LiveWatcher> watcher;
};

TEST_F(LiveWatcherTest, AppliesABatchOnceTheWindowHasPassed) {
  watch();
  callbacks.runPosted();
  ASSERT_EQ(events.requests().at(0).since, loaded->lastEventId);
  tree.file("a/new", 5000);
  deliver({{root + "/a/", 0, 41}, {root + "/a", 0, 42}, {root + "x/outside", 0, 43}});
  pass(1.4);
  EXPECT_TRUE(reported.empty());
  pass(0.2);
  ASSERT_EQ(reported.size(), 1U);
  const auto& update = std::get<LiveWatcher::Update>(reported[0]);
  EXPECT_EQ(update.changedDirs, std::vector<std::string>{root + "/a"});
  EXPECT_EQ(update.outcome.refreshedDirs, 1);
  EXPECT_EQ(update.outcome.newEventId, 43U);  // an event outside the root counts, too
  EXPECT_EQ(loaded->result.root->totalLogical, 5300U);
  EXPECT_EQ(load(index).result.root->totalLogical, 5300U);
  EXPECT_EQ(load(index).lastEventId, 43U);
  pass(60);
  EXPECT_EQ(reported.size(), 1U);  // idle stays idle
  EXPECT_EQ(workQueue.pendingCount() + callbacks.pendingCount() + commits.pendingCount(), 0U);
}

TEST_F(LiveWatcherTest, AppliesBatchesInOrder) {
  watch();
  tree.file("a/new", 1);
  deliver({{root + "/a", 0, 2}});
  workQueue.advance(Seconds(1.5));  // written to the index, the tree's part waits
  EXPECT_EQ(commits.pendingCount(), 1U);
  tree.file("b/new", 1);
  deliver({{root + "/b", 0, 3}});
  workQueue.advance(Seconds(10));
  EXPECT_EQ(commits.pendingCount(), 1U) << "a second batch was prepared before the first reached the tree";
  commits.runPosted();
  pass(0.6);
  EXPECT_EQ(reported.size(), 2U);
  EXPECT_EQ(loaded->result.root->totalLogical, 302U);
}

TEST_F(LiveWatcherTest, AppliesALargeBurstWhenItIsQuiet) {
  watch();
  deliver(burst(2000));
  pass(1.5);
  EXPECT_EQ(reported.size(), 1U) << "2,000 folders are applied at once";
  deliver(burst(2001));
  pass(1.5);
  EXPECT_EQ(reported.size(), 1U) << "2,001 wait for two quiet seconds";
  pass(2.0);
  EXPECT_EQ(reported.size(), 2U);
}

TEST_F(LiveWatcherTest, StopsAtTooManyChangesAndReportsItOnce) {
  watch(100);
  deliver(burst(101));
  pass(1.5);
  EXPECT_EQ(rescanReason(), "101 changed dirs — a rescan is cheaper");
  workQueue.runPosted();
  deliver({{root, EventFlag::rootChanged, 999}});
  pass(10);
  EXPECT_EQ(reported.size(), 1U);
}

TEST_F(LiveWatcherTest, ReportsWhyItLostTrack) {
  const auto reasonAfter = [&](const std::vector<FolderEvent>& list) {
    reported.clear();
    watch();
    deliver(list);
    pass(2);
    return rescanReason();
  };
  EXPECT_EQ(reasonAfter({{root, EventFlag::rootChanged, 1}}),
            "the folder was moved, replaced or deleted (stream flags 0x20)");
  EXPECT_EQ(reasonAfter({{root, EventFlag::userDropped | EventFlag::mustScanSubdirs, 1}}),
            "some changes were not recorded (stream flags 0x3)");
  EXPECT_EQ(reasonAfter({{root, EventFlag::unmount | EventFlag::mount, 1}}),
            "a disk was mounted in the folder; a disk in the folder was unmounted (stream flags 0xC0)");
  EXPECT_EQ(reasonAfter({{root, 0, 1}, {root, EventFlag::mustScanSubdirs, 2}, {root, 0, 3}}),
            "deep rescan flagged at the root");
  EXPECT_EQ(reasonAfter({{"", EventFlag::historyDone, 9}}), "");
  events.failStart = true;
  EXPECT_EQ(reasonAfter({}), "live stream start failed");
  events.failCreate = true;
  EXPECT_EQ(reasonAfter({}), "live stream creation failed");
}

TEST_F(LiveWatcherTest, StopsWhenTheIndexCannotBePatched) {
  watch();
  platform.files.remove(index);
  deliver({{root + "/a", 0, 2}});
  pass(1.5);
  EXPECT_EQ(rescanReason(), "index patch failed: sqlite: cannot open " + index + " for patching");
}

/// The disk is full while a batch is written: only that is reported, in its turn after the batch before, and
/// both index and tree stay those of the batch before.
TEST_F(LiveWatcherTest, AFullDiskKeepsTheBatchBeforeInIndexAndTree) {
  inPrivateMounts([&] {
    ASSERT_EQ(::mount("tmpfs", work.path.c_str(), "tmpfs", 0, "size=256k,mode=0700"), 0);
    begin();
    watch();
    tree.file("a/new", 1);
    deliver({{root + "/a", 0, 2}});
    workQueue.advance(Seconds(1.5));
    callbacks.runPosted();
    for (int number = 0; number < 2000; ++number)
      tree.file("b/" + std::string(200, 'n') + std::to_string(number), 1);
    deliver({{root + "/b", 0, 3}});
    commits.runPosted();
    pass(2);
    ASSERT_EQ(reported.size(), 2U);
    EXPECT_EQ(std::get<LiveWatcher::Update>(reported[0]).changedDirs, std::vector<std::string>{root + "/a"});
    EXPECT_THAT(rescanReason(), testing::HasSubstr("full"));
    EXPECT_EQ(std::get<LiveWatcher::NeedsRescan>(reported[1]).cause, LiveWatcher::Cause::unwritable);
    EXPECT_EQ(loaded->result.root->totalFiles, 3U);
    EXPECT_EQ(load(index).result.root->totalFiles, 3U);
    EXPECT_EQ(load(index).lastEventId, 2U);
  });
}

/// Two programs follow one root. Whatever the faster one has written, the other does not patch on top of.
TEST_F(LiveWatcherTest, AnotherProgramsCommitIsNotPatchedOver) {
  watch();
  tree.file("a/new", 1);
  patch(platform, index, {{root + "/a", Refresh::Depth::shallow}}, 2);
  const std::string before = readBytes(index);
  tree.file("b/new", 1);
  deliver({{root + "/b", 0, 3}});
  pass(2);
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(std::get<LiveWatcher::NeedsRescan>(reported[0]).cause, LiveWatcher::Cause::superseded);
  EXPECT_EQ(loaded->result.root->totalFiles, 2U);
  EXPECT_EQ(readBytes(index), before);
}

TEST_F(LiveWatcherTest, AnotherProgramsLockPutsABatchOff) {
  watch();
  tree.file("a/new", 1);
  deliver({{root + "/a", 0, 2}});
  {
    RawIndex other(index);
    other.exec("BEGIN IMMEDIATE");
    workQueue.advance(Seconds(1.5));  // waits for the lock, and gives up
    tree.file("b/new", 1);
    deliver({{root + "/b", 0, 3}});
    EXPECT_TRUE(reported.empty());
  }
  pass(2);
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(std::get<LiveWatcher::Update>(reported[0]).changedDirs,
            (std::vector<std::string>{root + "/a", root + "/b"}));
  EXPECT_EQ(loaded->result.root->totalFiles, 4U);
}

TEST_F(LiveWatcherTest, WorkLeftBehindByADestroyedWatcherDoesNothing) {
  watch();
  tree.file("a/new", 1);
  deliver({{root + "/a", 0, 2}});
  workQueue.advance(Seconds(1.5));
  events.push({{root + "/b", 0, 3}});
  watcher.reset();
  callbacks.runPosted();
  pass(10);
  EXPECT_TRUE(reported.empty());
  EXPECT_EQ(loaded->result.root->totalLogical, 300U);
}

}  // namespace
}  // namespace quon::test
