// What the kernel grants no more of: room in its queue, and watches.
#include <array>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include "EventHome.h"
#include "Snapshot.h"
#include "linux_fs/Descriptor.h"
#include "support/ChildProcess.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

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

/// A recorder in a process of its own, which can be paused. Its clock is so far ahead of the files' that a sweep
/// reaches back a tenth of a second, not three.
class PausableRecorder {
 public:
  explicit PausableRecorder(EventHome& home) : child(::fork()) {
    if (child != 0) return;
    SetClock ahead;
    ahead.shift(2'900'000);
    EventRecorder recorder(home.threads, home.folders, home.log,
                           {.backEnd = EventBackEnd::inotify, .clock = &ahead});
    if (recorder.waitToBegin()) recorder.run();
    ::_exit(0);
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
  const pid_t child;
};

TEST(Overflow, OfTheKernelsQueueLosesNoRandomEdit) {
  EventHome home;
  TreeEditor editor(home.root, randomSeed());
  editor.populate(200);
  const PausableRecorder recorder(home);
  Follower follower(home, {.mayRecord = false});
  Snapshot before(home.root);
  (void)follower.listener.take();
  for (int round = 0; round < 5; ++round) {
    for (int edit = 0; edit < 10; ++edit) editor.edit();
    recorder.pause();
    for (int edit = 0; edit < 10; ++edit) editor.edit();
    flood(home);
    for (int edit = 0; edit < 20; ++edit) editor.edit();
    recorder.resume();
    Reported reported = follower.changesSettledIn(home.root);
    const Snapshot after(home.root);
    EXPECT_EQ(reported[home.root] & EventFlag::lostTrack, 0U);
    const auto missed = after.missedSince(before, reported, Snapshot::HardLinks::ofTheirFolder);
    ASSERT_TRUE(missed.empty()) << testing::PrintToString(missed);
    before = after;
  }
}

TEST(WatchLimit, IsReportedWithItsRemedyAtOnceAndWhileLive) {
  inChild([] {
    if (::unshare(CLONE_NEWUSER) != 0) GTEST_SKIP() << "needs user namespaces";
    if (!put("/proc/sys/user/max_inotify_watches", "50")) GTEST_SKIP() << "cannot lower the limit of watches";
    EventHome home;
    home.temp.folder("root/a");
    {
      Follower follower(home, {.backEnd = EventBackEnd::inotify});
      EXPECT_EQ(follower.history[home.root] & EventFlag::lostTrack, 0U) << home.log.all();
      for (int folder = 0; folder < 100; ++folder) home.temp.folder("root/a/f" + std::to_string(folder));
      EXPECT_TRUE(follower.listener.waitForFlags(EventFlag::kernelDropped));
    }
    EventHome crowded;
    for (int folder = 0; folder < 100; ++folder) crowded.temp.folder("root/f" + std::to_string(folder));
    Follower follower(crowded, {.backEnd = EventBackEnd::inotify});
    EXPECT_EQ(follower.history[crowded.root], EventFlag::kernelDropped);
    for (const char* part : {"/proc/sys/fs/inotify/max_user_watches", "sysctl fs.inotify.max_user_watches="})
      EXPECT_NE(crowded.log.all().find(part), std::string::npos) << crowded.log.all();
  });
}

}  // namespace
}  // namespace quon::test
