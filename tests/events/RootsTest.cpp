// The root itself: renamed, removed, mounted over; and the program's own folders below it.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <thread>
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
  const Coverage gone = follower.events.cover(home.root, EventService::CoverMode::wait, {});
  EXPECT_EQ(gone.since, 0U);
  EXPECT_EQ(gone.reason, "No such file or directory");
  home.temp.folder("root/.settled");
  const std::uint64_t since = follower.events.cover(home.root, EventService::CoverMode::wait, {}).since;
  Listener again(follower.events, home.root, since);
  ASSERT_TRUE(again.waitForHistory());
  settle(follower.events, again, home.at(".settled"));
  EXPECT_FALSE(isLost(again.take(), home.root));
}

TEST_P(Root, MountedOverIsReportedAsChangedAndCoveredAgainWhenItComesBack) {
  const EventOptions how = options();
  inPrivateMounts([&] {
    EventHome home;
    Follower follower(home, how);
    mountTmpfs(home.root);
    EXPECT_TRUE(follower.listener.waitForFlags(EventFlag::rootChanged));
    ASSERT_EQ(::umount(home.root.c_str()), 0);
    // Nobody asks for it.
    LinuxEvents silent(home.threads, home.folders, home.log, {.mayRecord = false});
    while (isLost(historySince(silent, home.root, silent.currentEventId()), home.root))
      std::this_thread::yield();
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

TEST(BindMount, IsReportedAtBothPlacesAndLeavesItsSourceWatchedWhenItGoes) {
  // Which of the two the walk comes to first depends on the listing.
  for (const char* mounted : {"a", "z"}) {
    inPrivateMounts([&] {
      EventHome home;
      const std::string source = home.temp.folder("root/m/source");
      home.temp.folder("root/m/source/inner");
      const std::string point = home.temp.folder(std::string("root/") + mounted);
      bindMount(source, point);
      Follower follower(home, {.backEnd = EventBackEnd::inotify});
      home.temp.file("root/m/source/inner/one");
      EXPECT_EQ(follower.changes(), (Reported{{source + "/inner", 0}, {point + "/inner", 0}}));
      const std::uint64_t before = follower.events.currentEventId();
      ASSERT_EQ(::umount(point.c_str()), 0);
      ASSERT_TRUE(follower.listener.waitForFolder(point, before));
      (void)follower.changes();
      home.temp.file("root/m/source/inner/two");
      home.temp.file("root/m/source/three");
      EXPECT_EQ(follower.changes(), (Reported{{source, 0}, {source + "/inner", 0}}));
    });
  }
}

INSTANTIATE_TEST_SUITE_P(BackEnds, Root, eachBackEnd(), backEndName);

class OwnFolders : public WithBackEnd {};

TEST_P(OwnFolders, RaiseNoEvents) {
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
  Follower follower(home, options());
  (void)follower.changes();
  for (const char* name : {"0", "1", "2"}) writeOwn(name);
  EXPECT_EQ(follower.changes(), Reported());
}

INSTANTIATE_TEST_SUITE_P(BackEnds, OwnFolders, eachBackEnd(), backEndName);

}  // namespace
}  // namespace quon::test
