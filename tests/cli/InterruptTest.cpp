// Scans of about 100,000 entries that are interrupted and killed at random moments, from before the program
// has begun until after it is done.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <poll.h>
#include <random>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/timerfd.h>

#include "QuonProcess.h"
#include "support/RawIndex.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using std::chrono::duration;
using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr int kFolders = 2000;
constexpr int kFilesInFolder = 48;
constexpr int kMoments = 60;
constexpr int kAttempts = 10;
constexpr int kInterrupted = 128 + SIGINT;
constexpr int kKilled = 128 + SIGKILL;
constexpr duration<double> kLongest{1.0};

/// Comes back at a moment, by the timer's own word.
void reach(steady_clock::time_point moment) {
  const auto since = std::chrono::duration_cast<std::chrono::nanoseconds>(moment.time_since_epoch());
  itimerspec due{};
  due.it_value.tv_sec = since.count() / 1000000000;
  due.it_value.tv_nsec = since.count() % 1000000000;
  const Descriptor timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  pollfd wait{timer.get(), POLLIN, 0};
  ASSERT_EQ(::timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &due, nullptr), 0);
  ASSERT_EQ(::poll(&wait, 1, -1), 1);
}

class Interrupted : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    quon = std::make_unique<Quon>();
    for (int folder = 0; folder < kFolders; ++folder) {
      const std::string path =
          quon->folder.folder("tree/" + std::to_string(folder % 40) + "/" + std::to_string(folder));
      for (int file = 0; file < kFilesInFolder; ++file) std::ofstream(path + "/" + std::to_string(file));
    }
    whole = duration<double>::max();
    for (int round = 0; round < 3; ++round) {
      const auto begin = steady_clock::now();
      ASSERT_EQ(quon->document({"scan", quon->tree}).at("files"), kFolders * kFilesInFolder);
      whole = std::min<duration<double>>(whole, steady_clock::now() - begin);
    }
  }
  static void TearDownTestSuite() { quon.reset(); }

  void SetUp() override {
    index = quon->onlyIndex();
    before = readBytes(index);
    ASSERT_GE(::inotify_add_watch(watch.get(), quon->indexFolder().c_str(), IN_CREATE), 0);
  }

  /// Stops a scan that was just started while it builds its index; false when it was done sooner.
  bool pauseInTheMiddle(Running& scan) {
    alignas(inotify_event) std::array<char, 4096> made{};
    EXPECT_GT(::read(watch.get(), made.data(), made.size()), 0);
    return scan.pause();
  }

  /// The scan goes on after as long as it takes until progress is due.
  static void goOnWithProgressDue(const Running& scan) {
    reach(steady_clock::now() + std::chrono::milliseconds(250));
    scan.signal(SIGCONT);
  }

  /// Starts a scan and sends it the signal at a random moment; how it ended.
  Finished signalled(int number) {
    const auto longest = std::chrono::duration_cast<microseconds>(whole * 1.3).count();
    const microseconds delay(std::uniform_int_distribution<std::int64_t>(0, longest)(random));
    const auto begin = steady_clock::now();
    Running scan = quon->start({"scan", quon->tree});
    reach(begin + delay);
    scan.signal(number);
    const auto sent = steady_clock::now();
    Finished done = scan.wait();
    worst = std::max<duration<double>>(worst, steady_clock::now() - sent);
    return done;
  }

  /// Only a scan that was done before the signal came has replaced the index, and then by a whole one.
  void expectWholeIndex(bool done) {
    const std::string now = readBytes(index);
    if (now == before) return;
    if (!done) ++replaced;
    EXPECT_EQ(quon->document({"ls", quon->tree, "--no-catch-up"}).at("files"), kFolders * kFilesInFolder);
    before = now;
  }

  inline static std::unique_ptr<Quon> quon;
  inline static duration<double> whole{};
  const Descriptor watch{::inotify_init1(IN_CLOEXEC)};
  std::mt19937_64 random{randomSeed()};
  std::string index;
  std::string before;
  duration<double> worst{};
  int replaced = 0;
};

TEST_F(Interrupted, AtAnyMomentTheProgramLeavesAtOnceAndLeavesNothingBehind) {
  int interrupted = 0;
  for (int moment = 0; moment < kMoments; ++moment) {
    const Finished done = signalled(SIGINT);
    ASSERT_THAT(done.status, testing::AnyOf(0, kInterrupted)) << done.err;
    if (done.status == kInterrupted) ++interrupted;
    ASSERT_EQ(quon->indexFiles().size(), 1U) << "a file that was being built is left";
    ASSERT_NO_FATAL_FAILURE(expectWholeIndex(done.status == 0));
  }
  std::cout << interrupted << " of " << kMoments << " scans of " << whole.count()
            << " s interrupted, the slowest gone after " << worst.count() << " s; " << replaced
            << " had just been done\n";
  EXPECT_GT(interrupted - replaced, kMoments / 6);
  EXPECT_LT(worst, kLongest);
}

TEST_F(Interrupted, KilledAtAnyMomentTheEarlierIndexStandsAndTheNextScanSweeps) {
  int left = 0;
  for (int moment = 0; moment < kMoments / 2; ++moment) {
    const Finished done = signalled(SIGKILL);
    ASSERT_THAT(done.status, testing::AnyOf(0, kKilled)) << done.err;
    ASSERT_NO_FATAL_FAILURE(expectWholeIndex(done.status == 0));
    EXPECT_EQ(quon->document({"ls", quon->folder.at("tree/7"), "--no-catch-up"}).at("files"),
              kFolders / 40 * kFilesInFolder);
  }
  const auto twoHoursAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(2);
  std::string young;
  for (const std::string& name : quon->indexFiles()) {
    if (name.find(".building-") == std::string::npos) continue;
    ++left;
    young = quon->indexFolder() + "/" + name;
    std::filesystem::last_write_time(young, twoHoursAgo);
  }
  ASSERT_GE(left, 2) << "no scan was killed while it built its index";
  // One of them may still be in another scan's hands.
  std::filesystem::last_write_time(young, std::filesystem::file_time_type::clock::now());
  EXPECT_EQ(quon->run({"scan", quon->tree}).status, 0);
  EXPECT_EQ(quon->indexFiles().size(), 2U);
  EXPECT_TRUE(std::filesystem::remove(young));
}

TEST_F(Interrupted, EverySignalThatEndsProgramsEndsTheScanInGoodOrder) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    Finished done;
    for (int attempt = 0; attempt < kAttempts && done.status != kInterrupted; ++attempt) {
      Running scan = quon->start({"scan", quon->tree, "--json"});
      if (!pauseInTheMiddle(scan)) continue;
      scan.signal(number);
      scan.signal(SIGCONT);
      done = scan.wait();
    }
    EXPECT_EQ(done.status, kInterrupted);
    EXPECT_EQ(done.out, "");
    EXPECT_EQ(done.err, "");
    EXPECT_EQ(quon->indexFiles().size(), 1U);
    expectWholeIndex(false);
  }
}

TEST_F(Interrupted, ASignalThatIsIgnoredEndsNothing) {
  quon->ignoresHangups = true;
  bool paused = false;
  for (int attempt = 0; attempt < kAttempts && !paused; ++attempt) {
    Running scan = quon->start({"scan", quon->tree});
    paused = pauseInTheMiddle(scan);
    if (paused) {
      scan.signal(SIGHUP);
      scan.signal(SIGCONT);
    }
    EXPECT_EQ(scan.wait().status, 0);
  }
  EXPECT_TRUE(paused) << "every scan was done before it could be held up";
  quon->ignoresHangups = false;
}

TEST_F(Interrupted, ProgressIsShownOnATerminalAndGoneInTheEnd) {
  if (!canMakeTerminals()) GTEST_SKIP() << "no pseudo-terminals here";
  std::string shown;
  for (int attempt = 0; attempt < kAttempts && shown.find("dirs ·") == std::string::npos; ++attempt) {
    Descriptor terminal;
    Running scan = quon->startOnTerminal({"scan", quon->tree}, 100, terminal);
    if (!pauseInTheMiddle(scan)) continue;
    goOnWithProgressDue(scan);
    shown = everythingFrom(terminal);
    EXPECT_EQ(scan.wait().status, 0);
  }
  ASSERT_THAT(shown, testing::HasSubstr("dirs ·"));
  const std::size_t cleared = shown.rfind("\r\033[K");
  EXPECT_GT(cleared, shown.rfind("dirs ·")) << "the last progress is still there";
  EXPECT_LT(cleared, shown.find(" on disk)")) << "the result is wiped out";
}

TEST_F(Interrupted, NoProgressIsWrittenWhereNobodyLooks) {
  bool paused = false;
  for (int attempt = 0; attempt < kAttempts && !paused; ++attempt) {
    Running scan = quon->start({"scan", quon->tree});
    paused = pauseInTheMiddle(scan);
    if (paused) goOnWithProgressDue(scan);
    EXPECT_EQ(scan.wait().err, "");
  }
  EXPECT_TRUE(paused) << "every scan was done before it could be held up";
}

}  // namespace
}  // namespace quon::test
