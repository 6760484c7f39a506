// The root itself: renamed, removed, mounted over, on a file system whose times say nothing; and the
// program's own folders below it.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "EventHome.h"
#include "Snapshot.h"
#include "support/ChildProcess.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

class Root : public testing::TestWithParam<EventBackEnd> {
 protected:
  void SetUp() override {
    if (GetParam() == EventBackEnd::fanotify && !mayUseFanotify()) {
      GTEST_SKIP() << "fanotify takes root, or CAP_SYS_ADMIN and CAP_DAC_READ_SEARCH";
    }
  }
  [[nodiscard]] EventOptions options() const { return {.backEnd = GetParam()}; }
};

TEST_P(Root, RenamedIsTold) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log, options());
  Listener listener(events, home.root, events.currentEventId());
  ASSERT_TRUE(listener.waitForHistory());
  fs::rename(home.root, home.root + "-moved");
  EXPECT_TRUE(listener.waitForFlags(EventFlag::rootChanged));
}

TEST_P(Root, WithAFolderAboveRenamedIsTold) {
  EventHome home;
  const std::string root = home.temp.folder("above/between/below");
  LinuxEvents events(home.threads, home.folders, home.log, options());
  Listener listener(events, root, events.currentEventId());
  ASSERT_TRUE(listener.waitForHistory());
  fs::rename(home.temp.at("above"), home.temp.at("aside"));
  EXPECT_TRUE(listener.waitForFlags(EventFlag::rootChanged));
}

TEST_P(Root, RemovedIsToldAndAskedForAgainIsWatchedAgain) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log, options());
  Listener listener(events, home.root, events.currentEventId());
  ASSERT_TRUE(listener.waitForHistory());
  fs::remove_all(home.root);
  EXPECT_TRUE(listener.waitForFlags(EventFlag::rootChanged));
  {
    Listener gone(events, home.root, events.currentEventId());
    EXPECT_TRUE(gone.waitForHistory());
    EXPECT_TRUE(gone.waitForFlags(EventFlag::rootChanged));
  }
  home.temp.folder("root/.settled");
  Listener again(events, home.root, events.currentEventId());
  ASSERT_TRUE(again.waitForHistory());
  settle(events, home.root, again);
}

TEST_P(Root, ReplacedWhileNobodyRecordedIsTold) {
  EventHome home;
  std::uint64_t since = 0;
  {
    LinuxEvents events(home.threads, home.folders, home.log, options());
    since = events.currentEventId();
    (void)historySince(events, home.root, since);
  }
  home.temp.folder("other/inside");
  fs::rename(home.root, home.temp.at("aside"));
  fs::rename(home.temp.at("other"), home.root);
  LinuxEvents events(home.threads, home.folders, home.log, options());
  Listener listener(events, home.root, since);
  ASSERT_TRUE(listener.waitForHistory());
  EXPECT_EQ(listener.take()[home.root] & EventFlag::lostTrack, EventFlag::rootChanged);
  EXPECT_EQ(historySince(events, home.root, events.currentEventId())[home.root] & EventFlag::lostTrack, 0U);
}

TEST_P(Root, MountedOverIsTold) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    home.temp.folder("root/sub");
    LinuxEvents events(home.threads, home.folders, home.log, how);
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    mountTmpfs(home.root);
    EXPECT_TRUE(listener.waitForFlags(EventFlag::rootChanged));
    ASSERT_EQ(::umount(home.root.c_str()), 0);
  });
}

TEST_P(Root, UnmountedIsTold) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    mountTmpfs(home.root);
    LinuxEvents events(home.threads, home.folders, home.log, how);
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    ASSERT_EQ(::umount2(home.root.c_str(), MNT_DETACH), 0);
    EXPECT_TRUE(listener.waitForFlags(EventFlag::rootChanged) || listener.waitForFlags(EventFlag::unmount));
  });
}

TEST_P(Root, AMountBelowItIsDeepAndIsNotEntered) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    home.temp.folder("root/.settled");
    home.temp.folder("root/a/point/hidden");
    LinuxEvents events(home.threads, home.folders, home.log, how);
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    (void)listener.take();
    const std::string point = home.root + "/a/point";
    mountTmpfs(point);
    ASSERT_TRUE(listener.waitForFolder(point, 0));
    settle(events, home.root, listener);
    EXPECT_EQ(listener.take()[point], EventFlag::mustScanSubdirs);
    home.temp.file("root/a/point/file");
    home.temp.folder("root/a/point/folder");
    settle(events, home.root, listener);
    EXPECT_EQ(listener.take().size(), 1U);
    const std::uint64_t before = events.currentEventId();
    ASSERT_EQ(::umount(point.c_str()), 0);
    ASSERT_TRUE(listener.waitForFolder(point, before));
    home.temp.file("root/a/point/hidden/file");
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(point + "/hidden"));
  });
}

INSTANTIATE_TEST_SUITE_P(BackEnds, Root, testing::Values(EventBackEnd::inotify, EventBackEnd::fanotify),
                         [](const auto& tested) {
                           return tested.param == EventBackEnd::inotify ? "Inotify" : "Fanotify";
                         });

TEST(RootWithoutTimes, IsScannedAfreshOnceAndFollowedFromThenOn) {
  inPrivateMounts([] {
    EventHome home;
    // One that keeps good times, but is not known to.
    if (::mount("none", home.root.c_str(), "hugetlbfs", 0, nullptr) != 0) {
      GTEST_SKIP() << "needs a kernel with hugetlbfs";
    }
    home.temp.folder("root/.settled");
    LinuxEvents events(home.threads, home.folders, home.log);
    const std::uint64_t since = events.currentEventId();
    Listener first(events, home.root, since);
    ASSERT_TRUE(first.waitForHistory());
    EXPECT_EQ(first.take()[home.root], EventFlag::userDropped);
    Listener second(events, home.root, events.currentEventId());
    ASSERT_TRUE(second.waitForHistory());
    EXPECT_EQ(second.take()[home.root] & EventFlag::lostTrack, 0U);
    settle(events, home.root, second);
  });
}

class OwnFolders : public Root {};

TEST_P(OwnFolders, RaiseNoEventsLiveOrBySweep) {
  EventHome home;
  // The root is the home itself, with everything of the program's own below it.
  for (const char* name : {"share/quon/index", "config/quon", "state/quon", "share/other", ".settled"}) {
    home.temp.folder(name);
  }
  const std::string& root = home.temp.path;
  const auto writeOwn = [&](int round) {
    const std::string name = std::to_string(round);
    home.temp.file("share/quon/index/file" + name, 5);
    home.temp.folder("share/quon/index/folder" + name);
    home.temp.file("config/quon/defaults" + name);
    fs::rename(home.temp.at("share/quon/index/file" + name), home.temp.at("share/quon/index/moved"));
    fs::remove_all(home.temp.at("share/quon/index/folder" + name));
  };
  SetClock clock;
  std::uint64_t since = 0;
  {
    LinuxEvents events(home.threads, home.folders, home.log, {.backEnd = GetParam(), .clock = &clock});
    Listener listener(events, root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    settle(events, root, listener);
    (void)listener.take();
    for (int round = 0; round < 3; ++round) writeOwn(round);
    settle(events, root, listener);
    const auto found = listener.take();
    EXPECT_EQ(found.size(), 1U) << found.begin()->first << " " << found.rbegin()->first;
    since = events.currentEventId();
  }
  // A sweep looks 3 seconds further back than it was asked to; this clock is so far ahead of the files'.
  clock.shift(3'100'000);
  {
    LinuxEvents events(home.threads, home.folders, home.log, {.backEnd = GetParam(), .clock = &clock});
    since = events.currentEventId();
  }
  fs::remove(home.folders.state + "/journal.sqlite");
  writeOwn(9);
  LinuxEvents events(home.threads, home.folders, home.log, {.backEnd = GetParam(), .clock = &clock});
  const auto swept = historySince(events, root, since);
  EXPECT_TRUE(swept.empty()) << swept.begin()->first;
}

INSTANTIATE_TEST_SUITE_P(BackEnds, OwnFolders, testing::Values(EventBackEnd::inotify, EventBackEnd::fanotify),
                         [](const auto& tested) {
                           return tested.param == EventBackEnd::inotify ? "Inotify" : "Fanotify";
                         });

}  // namespace
}  // namespace quon::test
