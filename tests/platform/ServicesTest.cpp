#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <pwd.h>
#include <sched.h>
#include <signal.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

#include "platform_linux/Interrupts.h"
#include "platform_linux/KeyFileDefaults.h"
#include "platform_linux/LinuxPlatform.h"
#include "platform_linux/LinuxThreads.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// The folders under the given environment; an empty optional unsets the variable.
Folders foldersWith(const std::optional<std::string>& home, const std::optional<std::string>& xdg) {
  const auto set = [](const char* name, const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name, value->c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no other thread runs
    } else {
      ::unsetenv(name);  // NOLINT(concurrency-mt-unsafe)
    }
  };
  set("HOME", home);
  for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) set(name, xdg);
  return LinuxPlatform::folders();
}

TEST(PlatformFolders, FollowAbsoluteVariablesOnly) {
  inChild([] {
    const Folders given = foldersWith("/home/me//", "/x/");
    EXPECT_EQ(given.home, "/home/me");
    EXPECT_EQ(given.data, "/x/quon");
    EXPECT_EQ(given.index(), "/x/quon/index");
    for (const std::optional<std::string>& ignored :
         {std::optional<std::string>(), {""}, {"relative/x"}, {"~/x"}}) {
      const Folders usual = foldersWith("/home/me", ignored);
      EXPECT_EQ(usual.data, "/home/me/.local/share/quon");
      EXPECT_EQ(usual.config, "/home/me/.config/quon");
      EXPECT_EQ(usual.state, "/home/me/.local/state/quon");
      EXPECT_EQ(foldersWith(ignored, "/x").home,
                ::getpwuid(::getuid())->pw_dir);  // NOLINT(concurrency-mt-unsafe)
    }
    // Services without a home of their own have "/": their paths must compare equal to those that a walk
    // builds.
    EXPECT_EQ(foldersWith("/", std::nullopt).data, "/.local/share/quon");
    EXPECT_EQ(foldersWith("/", "/").state, "/quon");
  });
}

TEST(KeyFileDefaults, OneGroupIsReadAndWhatIsNoKeyFileIsEmpty) {
  const TempFolder temp;
  const KeyFileDefaults defaults(temp.path);
  EXPECT_EQ(defaults.text("root"), std::nullopt);
  std::ofstream(temp.at("defaults.ini")) << "[other]\nroot=/wrong\n[quon]\nroot = /home/me/été \n";
  EXPECT_EQ(defaults.text("root"), "/home/me/été ");
  std::ofstream(temp.at("defaults.ini"), std::ios::binary) << "\xff\xfe no [key file\n root=/wrong";
  EXPECT_EQ(defaults.text("root"), std::nullopt);
}

TEST(KeyFileDefaults, WhatIsSetIsKeptBesideWhatTheUserWrote) {
  const TempFolder temp;
  KeyFileDefaults defaults(temp.at("config/quon"));
  EXPECT_EQ(defaults.texts("recentRoots"), std::vector<std::string>());
  EXPECT_FALSE(defaults.flag("hasOnboarded"));
  const std::vector<std::string> roots{"/home/me/a;b", "/line\nbreak\\ ", "/stray\xff", "/\xc3\xa9"};
  defaults.setTexts("recentRoots", roots);
  defaults.setFlag("hasOnboarded", true);
  EXPECT_EQ(KeyFileDefaults(temp.at("config/quon")).texts("recentRoots"), roots);
  EXPECT_TRUE(defaults.flag("hasOnboarded"));

  std::ofstream(temp.at("config/quon/defaults.ini")) << "# mine\n[quon]\nroot=/home\n";
  defaults.setTexts("recentRoots", {});
  EXPECT_EQ(defaults.text("root"), "/home");
  EXPECT_EQ(defaults.texts("recentRoots"), std::vector<std::string>());
  std::ifstream kept(temp.at("config/quon/defaults.ini"));
  const std::string content{std::istreambuf_iterator<char>(kept), {}};
  EXPECT_NE(content.find("# mine"), std::string::npos);

  std::filesystem::remove_all(temp.at("config/quon"));
  std::ofstream(temp.at("config/quon")) << "a file where the folder belongs";
  EXPECT_THROW(defaults.setFlag("hasOnboarded", true), std::system_error);
}

TEST(Threads, HaveTheirNameAndStackAndAreJoined) {
  constexpr std::size_t stackBytes = 4194304;
  std::array<char, 64> name{};
  std::size_t stack = 0;
  (void)LinuxThreads().start("scanstore-writer", stackBytes, [&] {
    pthread_getname_np(pthread_self(), name.data(), name.size());
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &stack);
    pthread_attr_destroy(&attributes);
  });
  EXPECT_STREQ(name.data(), "scanstore-write");
  EXPECT_GE(stack, stackBytes);
  EXPECT_LT(stack, 2 * stackBytes);
  EXPECT_THROW((void)LinuxThreads().start("tiny", 16, [] {}), std::system_error);
}

TEST(Threads, AllowedProcessorsAreCounted) {
  inChild([] {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned>(::sched_getcpu()), &one);
    ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(LinuxThreads().activeProcessors(), 1U);
  });
}

TEST(ThreadsDeathTest, AnExceptionThatLeavesTheBodyIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(LinuxThreads().start("writer", 1 << 20, [] { throw std::runtime_error("disk full"); })->join(),
               "writer: disk full");
}

TEST(Interrupts, CallBackForEverySignalUntilDestroyed) {
  sigset_t before;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  std::mutex lock;
  std::condition_variable called;
  int calls = 0;
  {
    const Interrupts interrupts([&] {
      const std::lock_guard held(lock);
      ++calls;
      called.notify_all();
    });
    int expected = 0;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGINT}) {
      ASSERT_EQ(::kill(::getpid(), signal), 0);
      std::unique_lock held(lock);
      ++expected;
      ASSERT_TRUE(called.wait_for(held, std::chrono::minutes(1), [&] { return calls == expected; }))
          << signal;
    }
  }
  sigset_t after;
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal));
  }
}

}  // namespace
}  // namespace quon::test
