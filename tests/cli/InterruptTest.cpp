// Scans that are interrupted and killed, at random moments and while they build their index.
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
#include <sys/timerfd.h>

#include "QuonProcess.h"
#include "support/RawIndex.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using std::chrono::microseconds;

constexpr int kFolders = 400;
constexpr int kFilesInFolder = 25;
constexpr int kMostRounds = 1000;
constexpr int kInterrupted = 128 + SIGINT;

void waitFor(microseconds delay) {
  itimerspec due{};
  due.it_value.tv_sec = delay.count() / 1000000;
  due.it_value.tv_nsec = delay.count() % 1000000 * 1000 + 1;
  const Descriptor timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
  pollfd wait{timer.get(), POLLIN, 0};
  ASSERT_EQ(::timerfd_settime(timer.get(), 0, &due, nullptr), 0);
  ASSERT_EQ(::poll(&wait, 1, -1), 1);
}

class Interrupted : public testing::Test {
 protected:
  void SetUp() override {
    for (int folder = 0; folder < kFolders; ++folder) {
      const std::string path =
          quon.folder.folder("tree/" + std::to_string(folder % 40) + "/" + std::to_string(folder));
      for (int file = 0; file < kFilesInFolder; ++file) std::ofstream(path + "/" + std::to_string(file));
    }
    ASSERT_EQ(quon.document({"scan", quon.tree}).at("files"), kFolders * kFilesInFolder);
    index = quon.onlyIndex();
    before = readBytes(index);
    ASSERT_GE(::inotify_add_watch(watch.get(), quon.indexFolder().c_str(), IN_CREATE), 0);
  }

  /// Starts scans until one could be stopped after it began to build its index.
  std::unique_ptr<Running> pausedScan() {
    for (int round = 0; round < kMostRounds; ++round) {
      std::unique_ptr<Running> scan(new Running(quon.start({"scan", quon.tree})));
      alignas(inotify_event) std::array<char, 4096> made{};
      EXPECT_GT(::read(watch.get(), made.data(), made.size()), 0);
      if (scan->pause()) return scan;
      before = readBytes(index);
    }
    throw std::runtime_error("every scan ended before it could be stopped");
  }

  /// The index is the earlier one, or a whole new one; true when it is new.
  bool indexWasReplaced() {
    const std::string now = readBytes(index);
    if (now == before) return false;
    EXPECT_EQ(quon.document({"ls", quon.tree, "--no-catch-up"}).at("files"), kFolders * kFilesInFolder);
    before = now;
    return true;
  }

  /// Sends the signal to scans at random moments, until 20 of them ended by it without an index. The span of
  /// the moments follows what scans take, which depends on what else the machine does.
  void interruptAtRandom(int number) {
    std::mt19937_64 random(randomSeed());
    double longest = 20000;  // microseconds
    int ended = 0;
    for (int round = 0; round < kMostRounds && ended < 20; ++round) {
      Running scan = quon.start({"scan", quon.tree});
      waitFor(microseconds(random() % static_cast<std::uint64_t>(longest)));
      scan.signal(number);
      const Finished done = scan.wait();
      ASSERT_THAT(done.status, testing::AnyOf(0, 128 + number)) << done.err;
      if (number == SIGINT) {
        ASSERT_EQ(quon.indexFiles().size(), 1U) << "an unfinished index is left";
      }
      const bool wasEarly = !indexWasReplaced() && done.status != 0;
      longest *= wasEarly ? 1.3 : 0.8;
      ended += wasEarly ? 1 : 0;
    }
    EXPECT_EQ(ended, 20);
  }

  Quon quon;
  const Descriptor watch{::inotify_init1(IN_CLOEXEC)};
  std::string index;
  std::string before;
};

TEST_F(Interrupted, AtAnyMomentTheEarlierIndexIsKeptAndNothingElse) {
  interruptAtRandom(SIGINT);
}

TEST_F(Interrupted, KilledAtAnyMomentTheEarlierIndexIsKeptAndTheNextScanRemovesTheRest) {
  interruptAtRandom(SIGKILL);
  while (quon.indexFiles().size() < 3) pausedScan()->signal(SIGKILL);
  std::string recent;
  for (const std::string& name : quon.indexFiles()) {
    if (name.find(".building-") == std::string::npos) continue;
    recent = quon.indexFolder() + "/" + name;
    std::filesystem::last_write_time(recent,
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(2));
  }
  // Another scan may still be writing this one.
  std::filesystem::last_write_time(recent, std::filesystem::file_time_type::clock::now());
  EXPECT_EQ(quon.run({"scan", quon.tree}).status, 0);
  EXPECT_THAT(quon.indexFiles(),
              testing::UnorderedElementsAre(std::filesystem::path(index).filename().string(),
                                            std::filesystem::path(recent).filename().string()));
}

TEST_F(Interrupted, EverySignalThatEndsProgramsCancelsTheScan) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const auto scan = pausedScan();
    scan->signal(number);
    scan->signal(SIGCONT);
    const Finished done = scan->wait();
    EXPECT_EQ(done.status, kInterrupted);
    EXPECT_EQ(done.out + done.err, "");
    EXPECT_EQ(quon.indexFiles().size(), 1U);
    EXPECT_FALSE(indexWasReplaced());
  }
}

TEST_F(Interrupted, AnIgnoredSignalEndsNothingAndNoProgressGoesToAFile) {
  quon.ignoresHangups = true;
  const auto scan = pausedScan();
  scan->signal(SIGHUP);
  waitFor(std::chrono::milliseconds(250));  // until progress is due
  scan->signal(SIGCONT);
  const Finished done = scan->wait();
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(done.err, "");
}

}  // namespace
}  // namespace quon::test
