// The root itself: renamed, removed, mounted over; and the program's own folders below it.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "EventHome.h"
#include "support/ChildProcess.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

class Root : public WithBackEnd {};

TEST_P(Root, RenamedOrBelowARenamedFolderIsReportedAsChanged) {
  for (const char* renamed : {"above/between/root", "above"}) {
    EventHome home;
    Follower follower(home, options(), home.temp.folder("above/between/root"));
    fs::rename(home.temp.at(renamed), home.temp.at("aside"));
    EXPECT_TRUE(follower.listener.waitForFlags(EventFlag::rootChanged)) << renamed;
  }
}

TEST_P(Root, RemovedIsReportedAsChangedAndWatchedAgainWhenAskedForAgain) {
  EventHome home;
  Follower follower(home, options());
  fs::remove_all(home.root);
  EXPECT_TRUE(follower.listener.waitForFlags(EventFlag::rootChanged));
  EXPECT_EQ(historySince(follower.events, home.root, follower.events.currentEventId())[home.root],
            EventFlag::rootChanged);
  home.temp.folder("root/.settled");
  Listener again(follower.events, home.root, follower.events.currentEventId());
  ASSERT_TRUE(again.waitForHistory());
  settle(follower.events, home.root, again, home.at(".settled"));
}

TEST_P(Root, ReplacedWhileNobodyRecordedIsReportedAsChanged) {
  EventHome home;
  const std::uint64_t since = coverRoot(home, options());
  home.temp.folder("other/inside");
  fs::rename(home.root, home.temp.at("aside"));
  fs::rename(home.temp.at("other"), home.root);
  EXPECT_EQ(historySince(home, options(), since)[home.root] & EventFlag::lostTrack, EventFlag::rootChanged);
  (void)coverRoot(home, options());
}

TEST_P(Root, MountedOverIsReportedAsChanged) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    Follower follower(home, how);
    mountTmpfs(home.root);
    EXPECT_TRUE(follower.listener.waitForFlags(EventFlag::rootChanged));
    ASSERT_EQ(::umount(home.root.c_str()), 0);
  });
}

TEST_P(Root, UnmountedIsReported) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    mountTmpfs(home.root);
    Follower follower(home, how);
    ASSERT_EQ(::umount2(home.root.c_str(), MNT_DETACH), 0);
    const auto isReport = [](const FolderEvent& event) {
      return (event.flags & (EventFlag::rootChanged | EventFlag::unmount)) != 0;
    };
    EXPECT_TRUE(follower.listener.waitUntil(isReport));
  });
}

TEST_P(Root, FolderMountedBelowItIsDeepAndNotEntered) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    const std::string point = home.temp.folder("root/a/point");
    home.temp.folder("root/a/point/hidden");
    Follower follower(home, how);
    mountTmpfs(point);
    ASSERT_TRUE(follower.listener.waitForFolder(point, 0));
    EXPECT_EQ(follower.changes()[point], EventFlag::mustScanSubdirs);
    home.temp.file("root/a/point/file");
    home.temp.folder("root/a/point/folder");
    EXPECT_EQ(follower.changes(), Reported());
    const std::uint64_t before = follower.events.currentEventId();
    ASSERT_EQ(::umount(point.c_str()), 0);
    ASSERT_TRUE(follower.listener.waitForFolder(point, before));
    home.temp.file("root/a/point/hidden/file");
    EXPECT_TRUE(follower.changes().contains(point + "/hidden"));
  });
}

INSTANTIATE_TEST_SUITE_P(BackEnds, Root, eachBackEnd(), backEndName);

class OwnFolders : public WithBackEnd {};

TEST_P(OwnFolders, RaiseNoEventsLiveOrBySweep) {
  EventHome home;
  // The root is the home itself, with everything of the program's own below it.
  home.root = home.temp.path;
  for (const char* name : {"share/quon/index", "config/quon", "state/quon", "share/other"})
    home.temp.folder(name);
  const auto writeOwn = [&](const std::string& name) {
    home.temp.file("share/quon/index/file" + name, 5);
    home.temp.folder("share/quon/index/folder" + name);
    home.temp.file("config/quon/defaults" + name);
    fs::rename(home.temp.at("share/quon/index/file" + name), home.temp.at("share/quon/index/moved"));
    fs::remove_all(home.temp.at("share/quon/index/folder" + name));
  };
  SetClock clock;
  const EventOptions how{.backEnd = GetParam(), .clock = &clock};
  {
    Follower follower(home, how);
    (void)follower.changes();
    for (const char* name : {"0", "1", "2"}) writeOwn(name);
    EXPECT_EQ(follower.changes(), Reported());
  }
  // A sweep reaches 3 seconds further back than it was asked to; this clock is so far ahead of the files'.
  clock.shift(3'100'000);
  const std::uint64_t since = LinuxEvents(home.threads, home.folders, home.log, how).currentEventId();
  fs::remove(home.folders.state + "/journal.sqlite");
  writeOwn("9");
  EXPECT_EQ(historySince(home, how, since), Reported());
}

INSTANTIATE_TEST_SUITE_P(BackEnds, OwnFolders, eachBackEnd(), backEndName);

}  // namespace
}  // namespace quon::test
