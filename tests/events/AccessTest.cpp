// What the recorder may see: with the rights of its user, and with two capabilities.
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

namespace fs = std::filesystem;

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

void setMode(const std::string& path, mode_t mode) {
  ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

class WithCapabilities : public testing::Test {
 protected:
  void SetUp() override {
    if (::getuid() != 0 || !mayUseFanotify())
      GTEST_SKIP() << "takes root, to run as a user with two capabilities";
  }
};

TEST_F(WithCapabilities, RecordsNothingThatTheUserMayNotList) {
  // Written to by root, in a process of its own, while the user's recorder is at work.
  EventHome home;
  for (const char* name : {"root/open", "root/open/shut/inner", "root/open/unlisted/inner", "root/.settled"})
    home.temp.folder(name);
  fs::create_directories(home.temp.at("state"));
  setMode(home.temp.path, 0755);
  setMode(home.at("open/shut"), 0700);
  setMode(home.at("open/unlisted"), 0711);
  setMode(home.at(".settled"), 0777);
  setMode(home.temp.at("state"), 0777);
  std::array<int, 2> ready{};
  std::array<int, 2> written{};
  ASSERT_EQ(::pipe(ready.data()), 0);
  ASSERT_EQ(::pipe(written.data()), 0);
  const pid_t writer = ::fork();
  if (writer == 0) {
    char byte = 0;
    (void)!::read(ready[0], &byte, 1);
    for (const char* name :
         {"open/file", "open/shut/inner/file", "open/shut/file", "open/unlisted/inner/file"})
      std::ofstream(home.at(name)) << "text";
    fs::create_directory(home.at("open/shut/new"));
    (void)!::write(written[1], "w", 1);
    ::_exit(0);
  }
  inChild([&] {
    ASSERT_TRUE(becomeUserWithCapabilities());
    Follower follower(home, {.backEnd = EventBackEnd::fanotify});
    ASSERT_EQ(::write(ready[1], "r", 1), 1);
    char byte = 0;
    ASSERT_EQ(::read(written[0], &byte, 1), 1);
    const Reported found = follower.changes();
    EXPECT_TRUE(found.contains(home.at("open"))) << home.log.all();
    for (const auto& [path, flags] : found) {
      EXPECT_EQ(path.find("shut/"), std::string::npos) << path;
      EXPECT_EQ(path.find("unlisted/"), std::string::npos) << path;
    }
  });
  ASSERT_EQ(::waitpid(writer, nullptr, 0), writer);
}

TEST_F(WithCapabilities, AFolderThatIsClosedIsReportedAndDeepOnceItIsOpenAgain) {
  inChild([] {
    EventHome home;
    for (const char* name : {"root/open/shut/inner", "root/.settled"}) home.temp.folder(name);
    fs::create_directories(home.folders.state);
    ASSERT_EQ(::chown(home.temp.path.c_str(), kNobody, kNobody), 0);
    for (const auto& entry : fs::recursive_directory_iterator(home.temp.path))
      ASSERT_EQ(::chown(entry.path().c_str(), kNobody, kNobody), 0);
    ASSERT_TRUE(becomeUserWithCapabilities());
    Follower follower(home, {.backEnd = EventBackEnd::fanotify});
    const std::string shut = home.at("open/shut");
    const Descriptor inner(::open((shut + "/inner").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    setMode(shut, 0);
    EXPECT_TRUE(follower.changes().contains(shut)) << home.log.all();
    const Descriptor file(::openat(inner.get(), "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_EQ(follower.changes(), Reported());
    setMode(shut, 0700);
    EXPECT_EQ(follower.changes()[shut], EventFlag::mustScanSubdirs);
  });
}

TEST(AsOrdinaryUser, AFolderThatOpensBelowAClosedOneIsWatchedOnceItCanBeReached) {
  asOrdinaryUser([] {
    EventHome home;
    const std::string outer = home.temp.folder("root/outer");
    const std::string inner = home.temp.folder("root/outer/inner");
    const Descriptor reached(::open(inner.c_str(), O_PATH | O_CLOEXEC));
    const std::string byItself = "/proc/self/fd/" + std::to_string(reached.get());
    setMode(inner, 0);
    Follower follower(home);
    setMode(outer, 0);
    (void)follower.changes();
    setMode(byItself, 0700);  // an event on the outer folder, when nobody can read it
    (void)follower.changes();
    setMode(outer, 0700);
    EXPECT_TRUE(follower.changes().contains(inner)) << "it may contain anything by now";
    home.temp.file("root/outer/inner/file");
    EXPECT_TRUE(follower.changes().contains(inner)) << home.log.all();
  });
}

TEST(AsOrdinaryUser, AFolderThatBecomesListableAndThenEnterableIsWatched) {
  asOrdinaryUser([] {
    EventHome home;
    home.temp.folder("root/shut/inner");
    setMode(home.at("shut"), 0);
    Follower follower(home);
    setMode(home.at("shut"), 0400);  // names, and nothing else
    EXPECT_EQ(follower.changes()[home.at("shut")], EventFlag::mustScanSubdirs);
    setMode(home.at("shut"), 0755);
    (void)follower.changes();
    home.temp.file("root/shut/inner/file");
    EXPECT_TRUE(follower.changes().contains(home.at("shut/inner")));
    EXPECT_EQ(home.log.all(), "");
  });
}

}  // namespace
}  // namespace quon::test
