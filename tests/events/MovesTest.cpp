// Folders that appear, move, change places and vanish, with inotify: where the watches are must not matter.
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"
#include "support/ChildProcess.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

void write(const std::string& file) {
  std::ofstream(file, std::ios::app) << "more";
}

class Moves : public testing::TestWithParam<EventBackEnd> {
 protected:
  void SetUp() override {
    if (GetParam() == EventBackEnd::fanotify && !mayUseFanotify()) {
      GTEST_SKIP() << "fanotify takes root, or CAP_SYS_ADMIN and CAP_DAC_READ_SEARCH";
    }
    home.temp.folder("root/.settled");
  }
  /// Begins to listen; the tree is as the test made it.
  void listen() {
    events = std::make_unique<LinuxEvents>(home.threads, home.folders, home.log,
                                           EventOptions{.backEnd = GetParam()});
    listener = std::make_unique<Listener>(*events, home.root, events->currentEventId());
    ASSERT_TRUE(listener->waitForHistory()) << home.log.all();
    (void)listener->take();
  }
  /// What was reported since the last call: path below the root, with "/*" behind it when deep.
  [[nodiscard]] std::set<std::string> reported() {
    settle(*events, home.root, *listener);
    std::set<std::string> paths;
    for (const auto& [path, flags] : listener->take()) {
      if (path == home.root + "/.settled") continue;
      const bool deep = (flags & EventFlag::mustScanSubdirs) != 0;
      paths.insert((path == home.root ? "." : path.substr(home.root.size() + 1)) + (deep ? "/*" : ""));
    }
    return paths;
  }
  [[nodiscard]] std::string at(const std::string& name) const { return home.root + "/" + name; }

  EventHome home;
  std::unique_ptr<LinuxEvents> events;
  std::unique_ptr<Listener> listener;
};

using Paths = std::set<std::string>;

TEST_P(Moves, AMovedFolderIsDeepAndIsWatchedUnderItsNewPath) {
  home.temp.folder("root/a/b/c");
  home.temp.folder("root/z");
  listen();
  fs::rename(at("a/b"), at("z/b"));
  EXPECT_EQ(reported(), (Paths{"a", "z", "z/b/*"}));
  write(at("z/b/c/file"));
  EXPECT_EQ(reported(), (Paths{"z/b/c"}));
  fs::rename(at("z/b"), at("a/b"));
  EXPECT_EQ(reported(), (Paths{"a", "a/b/*", "z"}));
  write(at("a/b/c/file"));
  EXPECT_EQ(reported(), (Paths{"a/b/c"}));
}

TEST_P(Moves, ExchangedFoldersAreBothDeepAndChangePlaces) {
  home.temp.folder("root/a/x/in-x");
  home.temp.folder("root/b/y/in-y");
  listen();
  ASSERT_EQ(::renameat2(AT_FDCWD, at("a/x").c_str(), AT_FDCWD, at("b/y").c_str(), RENAME_EXCHANGE), 0);
  EXPECT_EQ(reported(), (Paths{"a", "a/x/*", "b", "b/y/*"}));
  write(at("a/x/in-y/file"));
  write(at("b/y/in-x/file"));
  EXPECT_EQ(reported(), (Paths{"a/x/in-y", "b/y/in-x"}));
}

TEST_P(Moves, WhatIsMovedOutIsForgottenAndWhatIsMovedInIsWatched) {
  home.temp.folder("root/a/deep/deeper");
  home.temp.folder("elsewhere/other/deep");
  listen();
  fs::rename(at("a"), home.temp.at("elsewhere/a"));
  EXPECT_EQ(reported(), (Paths{"."}));
  write(home.temp.at("elsewhere/a/deep/deeper/file"));
  EXPECT_EQ(reported(), Paths());
  fs::rename(home.temp.at("elsewhere/other"), at("other"));
  EXPECT_EQ(reported(), (Paths{".", "other/*"}));
  write(at("other/deep/file"));
  EXPECT_EQ(reported(), (Paths{"other/deep"}));
  fs::rename(home.temp.at("elsewhere/a"), at("a"));
  EXPECT_EQ(reported(), (Paths{".", "a/*"}));
  write(at("a/deep/deeper/file"));
  EXPECT_EQ(reported(), (Paths{"a/deep/deeper"}));
}

TEST_P(Moves, AFolderReplacedByAnotherOfTheSameNameIsDeep) {
  home.temp.folder("root/a/old");
  home.temp.folder("elsewhere/new/inner");
  listen();
  fs::remove_all(at("a"));
  fs::create_directories(at("a"));
  EXPECT_EQ(reported(), (Paths{".", "a/*"}));
  fs::remove_all(at("a"));
  fs::rename(home.temp.at("elsewhere/new"), at("a"));
  EXPECT_EQ(reported(), (Paths{".", "a/*"}));
  write(at("a/inner/file"));
  EXPECT_EQ(reported(), (Paths{"a/inner"}));
}

TEST_P(Moves, TreesThatAppearAreWatchedToTheBottom) {
  listen();
  std::string path = "tree";
  for (int depth = 0; depth < 40; ++depth) path += "/d" + std::to_string(depth);
  fs::create_directories(at(path));
  const Paths found = reported();
  EXPECT_TRUE(found.contains(".")) << testing::PrintToString(found);
  EXPECT_TRUE(found.contains("tree/*")) << testing::PrintToString(found);
  write(at(path + "/file"));
  EXPECT_EQ(reported(), (Paths{path}));
}

TEST_P(Moves, APathLongerThanTheSystemsLimitIsReportedOrCovered) {
  const std::string name(200, 'n');
  std::string path = home.root;
  Descriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY));
  for (int depth = 0; depth < 30; ++depth) {
    ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0755), 0);
    folder = Descriptor(::openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY));
    path += "/" + name;
  }
  listen();
  { const Descriptor file(::openat(folder.get(), "file", O_CREAT | O_WRONLY, 0644)); }
  settle(*events, home.root, *listener);
  const auto found = listener->take();
  bool covered = found.contains(path);
  for (const auto& [each, flags] : found) {
    covered = covered || ((flags & EventFlag::mustScanSubdirs) != 0 && path.starts_with(each + "/"));
  }
  EXPECT_TRUE(covered);
}

TEST_P(Moves, FilesOfAllKindsMarkTheirFolder) {
  home.temp.file("root/a/file", 10);
  home.temp.folder("root/b");
  listen();
  fs::rename(at("a/file"), at("b/file"));
  EXPECT_EQ(reported(), (Paths{"a", "b"}));
  ASSERT_EQ(::truncate(at("b/file").c_str(), 5), 0);
  EXPECT_EQ(reported(), (Paths{"b"}));
  ASSERT_EQ(::chmod(at("b/file").c_str(), 0600), 0);
  EXPECT_EQ(reported(), (Paths{"b"}));
  ASSERT_EQ(::symlink("nowhere", at("a/link").c_str()), 0);
  EXPECT_EQ(reported(), (Paths{"a"}));
  ASSERT_EQ(::link(at("b/file").c_str(), at("a/hard").c_str()), 0);
  EXPECT_TRUE(reported().contains("a"));
  ASSERT_EQ(::unlink(at("a/link").c_str()), 0);
  EXPECT_EQ(reported(), (Paths{"a"}));
}

INSTANTIATE_TEST_SUITE_P(BackEnds, Moves, testing::Values(EventBackEnd::inotify, EventBackEnd::fanotify),
                         [](const auto& tested) {
                           return tested.param == EventBackEnd::inotify ? "Inotify" : "Fanotify";
                         });

TEST(Permissions, AFolderThatBecomesReadableIsWatched) {
  asOrdinaryUser([] {
    EventHome home;
    home.temp.folder("root/.settled");
    home.temp.folder("root/shut/inner");
    ASSERT_EQ(::chmod((home.root + "/shut").c_str(), 0), 0);
    LinuxEvents events(home.threads, home.folders, home.log, {.backEnd = EventBackEnd::inotify});
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    ASSERT_EQ(::chmod((home.root + "/shut").c_str(), 0755), 0);
    settle(events, home.root, listener);
    EXPECT_EQ(listener.take()[home.root + "/shut"], EventFlag::mustScanSubdirs);
    write(home.root + "/shut/inner/file");
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(home.root + "/shut/inner"));
  });
}

}  // namespace
}  // namespace quon::test
