// A recorder that sees the whole file system tells its user only what that user may list.
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"
#include "support/ChildProcess.h"

namespace quon::test {
namespace {

constexpr uid_t kNobody = 65534;

/// As the service quon-recorder@USER starts: an ordinary user with two capabilities.
bool becomeUserWithCapabilities() {
  if (::prctl(PR_SET_KEEPCAPS, 1) != 0 || ::setgroups(0, nullptr) != 0 ||
      ::setresgid(kNobody, kNobody, kNobody) != 0 || ::setresuid(kNobody, kNobody, kNobody) != 0) {
    return false;
  }
  constexpr std::uint32_t kBoth = 1U << CAP_SYS_ADMIN | 1U << CAP_DAC_READ_SEARCH;
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  __user_cap_data_struct sets[2] = {{.effective = kBoth, .permitted = kBoth, .inheritable = kBoth}, {}};
  return ::syscall(SYS_capset, &header, sets) == 0;
}

TEST(Access, WhatTheUserMayNotListIsNotRecorded) {
  if (::getuid() != 0 || !mayUseFanotify())
    GTEST_SKIP() << "takes root, to run as a user with two capabilities";
  // Written to by root, in a process of its own, while the user's recorder is at work.
  EventHome outer;
  ASSERT_EQ(::chmod(outer.temp.path.c_str(), 0755), 0);
  for (const char* name : {"root/open", "root/open/shut/inner", "root/.settled"}) outer.temp.folder(name);
  ASSERT_EQ(::chmod((outer.root + "/open/shut").c_str(), 0700), 0);
  ASSERT_EQ(::chmod((outer.root + "/.settled").c_str(), 0777), 0);
  std::filesystem::create_directories(outer.temp.at("state"));
  ASSERT_EQ(::chmod(outer.temp.at("state").c_str(), 0777), 0);
  std::array<int, 2> ready{};
  std::array<int, 2> written{};
  ASSERT_EQ(::pipe(ready.data()), 0);
  ASSERT_EQ(::pipe(written.data()), 0);
  const pid_t writer = ::fork();
  if (writer == 0) {
    char byte = 0;
    (void)!::read(ready[0], &byte, 1);
    std::ofstream(outer.root + "/open/file") << "seen";
    std::ofstream(outer.root + "/open/shut/inner/file") << "not for others";
    std::ofstream(outer.root + "/open/shut/file") << "not for others";
    std::filesystem::create_directory(outer.root + "/open/shut/new");
    (void)!::write(written[1], "w", 1);
    ::_exit(0);
  }
  inChild([&] {
    ASSERT_TRUE(becomeUserWithCapabilities());
    LinuxEvents events(outer.threads, outer.folders, outer.log, {.backEnd = EventBackEnd::fanotify});
    Listener listener(events, outer.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory()) << outer.log.all();
    (void)listener.take();
    ASSERT_EQ(::write(ready[1], "r", 1), 1);
    char byte = 0;
    ASSERT_EQ(::read(written[0], &byte, 1), 1);
    settle(events, outer.root, listener);
    const auto found = listener.take();
    EXPECT_TRUE(found.contains(outer.root + "/open")) << outer.log.all();
    for (const auto& [path, flags] : found) EXPECT_EQ(path.find("shut"), std::string::npos) << path;
  });
  ASSERT_EQ(::waitpid(writer, nullptr, 0), writer);
}

TEST(Access, AttributesOfAFolderThatWasClosedAreToldByItsParent) {
  if (::getuid() != 0 || !mayUseFanotify())
    GTEST_SKIP() << "takes root, to run as a user with two capabilities";
  inChild([] {
    EventHome home;
    for (const char* name : {"root/open/shut", "root/.settled"}) home.temp.folder(name);
    std::filesystem::create_directories(home.folders.state);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.temp.path)) {
      ASSERT_EQ(::chown(entry.path().c_str(), kNobody, kNobody), 0);
    }
    ASSERT_EQ(::chown(home.temp.path.c_str(), kNobody, kNobody), 0);
    ASSERT_TRUE(becomeUserWithCapabilities());
    LinuxEvents events(home.threads, home.folders, home.log, {.backEnd = EventBackEnd::fanotify});
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory()) << home.log.all();
    (void)listener.take();
    ASSERT_EQ(::chmod((home.root + "/open/shut").c_str(), 0), 0);
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(home.root + "/open")) << home.log.all();
    ASSERT_EQ(::chmod((home.root + "/open/shut").c_str(), 0700), 0);
  });
}

TEST(Access, AFolderThatOpensBelowAClosedOneIsWatchedOnceItCanBeReached) {
  asOrdinaryUser([] {
    EventHome home;
    const std::string outer = home.temp.folder("root/outer");
    const std::string inner = home.temp.folder("root/outer/inner");
    home.temp.folder("root/.settled");
    const Descriptor reached(::open(inner.c_str(), O_PATH | O_CLOEXEC));
    const std::string byItself = "/proc/self/fd/" + std::to_string(reached.get());
    ASSERT_EQ(::chmod(inner.c_str(), 0), 0);
    LinuxEvents events(home.threads, home.folders, home.log);
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    ASSERT_EQ(::chmod(outer.c_str(), 0), 0);
    settle(events, home.root, listener);
    ASSERT_EQ(::chmod(byItself.c_str(), 0700), 0);  // told by the outer folder, when nobody can look
    settle(events, home.root, listener);
    ASSERT_EQ(::chmod(outer.c_str(), 0700), 0);
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(inner)) << "it may hold anything by now";
    home.temp.file("root/outer/inner/file");
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(inner)) << home.log.all();
  });
}

TEST(Access, AnOrdinaryUserGetsAWatchOnEveryFolder) {
  asOrdinaryUser([] {
    EventHome home;
    home.temp.folder("root/.settled");
    LinuxEvents events(home.threads, home.folders, home.log);
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    home.temp.file("root/file");
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(home.root));
    EXPECT_EQ(home.log.all(), "");
  });
}

TEST(Access, FanotifyWithoutPrivilegeSaysSoAndLosesTrack) {
  asOrdinaryUser([] {
    EventHome home;
    LinuxEvents events(home.threads, home.folders, home.log, {.backEnd = EventBackEnd::fanotify});
    Listener listener(events, home.root, events.currentEventId());
    ASSERT_TRUE(listener.waitForHistory());
    EXPECT_EQ(listener.take()[home.root], EventFlag::kernelDropped);
    EXPECT_NE(home.log.all().find("cannot watch the file system of"), std::string::npos) << home.log.all();
  });
}

}  // namespace
}  // namespace quon::test
