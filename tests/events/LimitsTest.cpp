// What there is no more of: room in the kernel's queue, watches, descriptors.
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"
#include "support/ChildProcess.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kQueueLimit = "/proc/sys/fs/inotify/max_queued_events";

bool put(const std::string& file, const std::string& text) {
  std::ofstream out(file);
  out << text << std::flush;
  return out.good();
}

/// Makes more events than the kernel's queue can take, which a watch of its own confirms. Events in a row
/// that are alike count once.
void flood(const EventHome& home) {
  const Descriptor own(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  ASSERT_GE(::inotify_add_watch(own.get(), home.root.c_str(), IN_MODIFY), 0);
  std::size_t length = 0;
  std::ifstream(kQueueLimit) >> length;
  std::ofstream first(home.at("flood-1"));
  std::ofstream second(home.at("flood-2"));
  for (std::size_t event = 0; event <= length; ++event)
    (event % 2 == 0 ? first : second) << 'x' << std::flush;
  bool overflowed = false;
  alignas(inotify_event) std::array<char, 65536> buffer{};
  for (ssize_t bytes = 0; (bytes = ::read(own.get(), buffer.data(), buffer.size())) > 0;) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
      const auto* event = reinterpret_cast<const inotify_event*>(&buffer[at]);
      overflowed = overflowed || (event->mask & IN_Q_OVERFLOW) != 0;
      at += sizeof(inotify_event) + event->len;
    }
  }
  ASSERT_TRUE(overflowed);
}

/// A recorder at work in a process of its own, which can be paused.
class PausableRecorder {
 public:
  explicit PausableRecorder(EventHome& home) {
    std::array<int, 2> ready{};
    EXPECT_EQ(::pipe(ready.data()), 0);
    child = ::fork();
    if (child == 0) {
      EventRecorder recorder(home.threads, home.folders, home.log, {.backEnd = EventBackEnd::inotify});
      if (!recorder.tryBegin() || ::write(ready[1], "r", 1) != 1) ::_exit(1);
      recorder.run();
      ::_exit(0);
    }
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    for (const int end : ready) ::close(end);
  }
  ~PausableRecorder() {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  PausableRecorder(const PausableRecorder&) = delete;
  PausableRecorder& operator=(const PausableRecorder&) = delete;
  void pause() const {
    ::kill(child, SIGSTOP);
    ::waitpid(child, nullptr, WUNTRACED);
  }
  void resume() const { ::kill(child, SIGCONT); }

 private:
  pid_t child = -1;
};

TEST(Overflow, OfTheKernelsQueueIsReportedAndTheRootCoveredAnew) {
  EventHome home;
  const std::string folder = home.temp.folder("root/a");
  const PausableRecorder recorder(home);
  LinuxEvents events(home.threads, home.folders, home.log, {.mayRecord = false});
  std::uint64_t since = events.cover(home.root, EventService::CoverMode::wait, {}).since;
  for (int round = 0; round < 2; ++round) {
    Listener listener(events, home.root, since);
    ASSERT_TRUE(listener.waitForHistory());
    recorder.pause();
    flood(home);
    recorder.resume();
    EXPECT_TRUE(listener.waitForFlags(EventFlag::kernelDropped));
    EXPECT_TRUE(isLost(historySince(events, home.root, since), home.root)) << "it is not covered since then";
    since = events.cover(home.root, EventService::CoverMode::wait, {}).since;
    home.temp.file("root/a/file" + std::to_string(round));
    EXPECT_TRUE(historySince(events, home.root, since).contains(folder));
  }
}

TEST(WatchLimit, IsReportedWithItsRemedyAtOnceAndWhileLive) {
  inChild([] {
    if (::unshare(CLONE_NEWUSER) != 0) GTEST_SKIP() << "needs user namespaces";
    if (!put("/proc/sys/user/max_inotify_watches", "50")) GTEST_SKIP() << "cannot lower the limit of watches";
    EventHome home;
    home.temp.folder("root/a");
    Follower follower(home, {.backEnd = EventBackEnd::inotify});
    for (int folder = 0; folder < 100; ++folder) home.temp.folder("root/a/f" + std::to_string(folder));
    const std::string reason = follower.listener.waitForLoss();
    const Coverage again = follower.events.cover(home.root, EventService::CoverMode::wait, {});
    EXPECT_EQ(again.since, 0U);
    EXPECT_EQ(again.reason, reason);
    for (const char* part : {"fs.inotify.max_user_watches", "`sudo sysctl fs.inotify.max_user_watches="})
      EXPECT_NE(reason.find(part), std::string::npos) << reason;
  });
}

void lowerDescriptorLimit(rlim_t count) {
  const rlimit limit{count, count};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST(DescriptorLimit, LeavesNoFolderOfABranchyTreeUnwatched) {
  inChild([] {
    EventHome home;
    // However they are listed, some of the side folders wait, with the one above, for the walk of what is
    // below.
    std::vector<std::string> leaves;
    for (std::string spine = "root"; leaves.size() < 160; spine += "/down") {
      for (const char* side : {"a", "b", "y", "z"}) leaves.push_back(home.temp.folder(spine + "/" + side));
    }
    Follower follower(home, {.backEnd = EventBackEnd::inotify});
    lowerDescriptorLimit(openDescriptors() + 12);
    // The recorder places its watches once more, with what is left.
    fs::rename(home.root, home.temp.at("moved"));
    EXPECT_TRUE(follower.listener.waitForFlags(EventFlag::rootChanged));
    fs::rename(home.temp.at("moved"), home.root);
    const Coverage coverage = follower.events.cover(home.root, EventService::CoverMode::wait, {});
    ASSERT_NE(coverage.since, 0U) << coverage.reason;
    for (const std::string& leaf : leaves) std::ofstream(leaf + "/file") << 'x';
    const Reported found = historySince(follower.events, home.root, coverage.since);
    for (const std::string& leaf : leaves) EXPECT_TRUE(found.contains(leaf)) << leaf;
  });
}

TEST(DescriptorLimit, KeepsClientsFromBeginningWithAReason) {
  inChild([] {
    EventHome home;
    (void)coverRoot(home);
    lowerDescriptorLimit(openDescriptors() + 1);
    LinuxEvents events(home.threads, home.folders, home.log);
    const Coverage coverage = events.cover(home.root, EventService::CoverMode::wait, {});
    EXPECT_EQ(coverage.since, 0U);
    EXPECT_NE(coverage.reason.find("Too many open files"), std::string::npos) << coverage.reason;
    EXPECT_FALSE(Listener(events, home.root, events.currentEventId()).begun());
  });
}

}  // namespace
}  // namespace quon::test
