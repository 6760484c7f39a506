// One recorder a user: who it is, and what happens when it ends or is killed.
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "EventHome.h"
#include "RecorderProgram.h"
#include "base/ManualQueue.h"

namespace quon::test {
namespace {

TEST(Program, RecordsUntilItIsTerminated) {
  EventHome home;
  RecorderProgram program(home);
  EXPECT_EQ(program.line(), "recording file-system changes in " + home.folders.state);
  const std::uint64_t since = coverRoot(home, {.mayRecord = false});
  home.temp.file("root/file");
  EXPECT_TRUE(historySince(home, {.mayRecord = false}, since).contains(home.root));
  EXPECT_EQ(program.end(SIGTERM), 0);
}

TEST(Program, FailsOrWaitsWhileAnotherIsAtWork) {
  EventHome home;
  RecorderProgram first(home);
  (void)first.line();
  RecorderProgram failing(home);
  const std::string reason = failing.line();
  EXPECT_TRUE(reason.starts_with("quon-recorder: another recorder is at work (process ")) << reason;
  EXPECT_EQ(failing.end(), 1);
  RecorderProgram impatient(home, {"--wait"});
  EXPECT_TRUE(impatient.line().starts_with("waiting for another recorder to end (process "));
  EXPECT_EQ(impatient.end(SIGTERM), 0) << "it ends while it waits";
  RecorderProgram next(home, {"--wait"});
  (void)next.line();
  EXPECT_EQ(first.end(SIGKILL), -SIGKILL);
  EXPECT_TRUE(next.line().starts_with("recording "));
  EXPECT_EQ(next.end(SIGINT), 0);
}

TEST(Recorder, KilledIsReportedAtOnceAndReplacedByAClientThatAsksAgain) {
  EventHome home;
  home.temp.folder("root/after");
  RecorderProgram program(home);
  (void)program.line();
  Follower follower(home);
  Follower silent(home, {.mayRecord = false});
  ASSERT_EQ(program.end(SIGKILL), -SIGKILL);
  EXPECT_EQ(follower.listener.waitForLoss(), "the program that recorded changes has ended");
  EXPECT_EQ(silent.listener.waitForLoss(), "the program that recorded changes has ended");
  const Coverage coverage = follower.events.cover(home.root, EventService::CoverMode::wait, {});
  EXPECT_GT(coverage.since, follower.since);
  EXPECT_TRUE(isLost(historySince(silent.events, home.root, follower.since), home.root));
  home.temp.file("root/after/file");
  EXPECT_TRUE(historySince(silent.events, home.root, coverage.since).contains(home.at("after")));
}

TEST(Recorder, ThatFollowsAnotherPlacesWatchesOnTheRootsItServed) {
  EventHome home;
  home.temp.folder("root/a");
  const std::uint64_t since = coverRoot(home);
  RecorderProgram program(home);
  (void)program.line();
  LinuxEvents events(home.threads, home.folders, home.log, {.mayRecord = false});
  const Reported missed = historySince(events, home.root, since);
  EXPECT_TRUE(isLost(missed, home.root));
  // Nobody asks: it is covered all the same, soon.
  Coverage coverage;
  while (coverage.since == 0) coverage = events.cover(home.root, EventService::CoverMode::ask, {});
  home.temp.file("root/a/file");
  EXPECT_TRUE(historySince(events, home.root, coverage.since).contains(home.at("a")));
}

TEST(Recorder, IsNotBegunByAServiceThatMayNotRecord) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log, {.mayRecord = false});
  const std::uint64_t now = events.currentEventId();
  EXPECT_GE(events.currentEventId(), now);
  EXPECT_EQ(events.cover(home.root, EventService::CoverMode::wait, {}).since, 0U);
  EXPECT_TRUE(isLost(historySince(events, home.root, now), home.root));
  EXPECT_FALSE(std::filesystem::exists(home.folders.state));
}

TEST(Recorder, IsWaitedForUntilTheWaitIsStopped) {
  EventHome home;
  RecorderProgram program(home);
  (void)program.line();
  // It has the lock, and nobody finds it.
  std::filesystem::rename(home.folders.state + "/recorder.socket", home.temp.at("socket"));
  program.stop();
  std::stop_source source;
  std::filesystem::remove(home.folders.state + "/recorder.socket");
  LinuxEvents events(home.threads, home.folders, home.log);
  EXPECT_EQ(events.cover(home.root, EventService::CoverMode::ask, {}).since, 0U) << "at once";
  std::jthread stopping([&] { source.request_stop(); });
  EXPECT_EQ(events.cover(home.root, EventService::CoverMode::wait, source.get_token()).since, 0U);
  std::jthread ending([&] { EXPECT_EQ(program.end(SIGKILL), -SIGKILL); });
  EXPECT_NE(events.cover(home.root, EventService::CoverMode::wait, {}).since, 0U) << "this process took over";
}

TEST(Recorder, ServesSeveralProgramsAtOnceFromWhereEachHasBeen) {
  EventHome home;
  RecorderProgram program(home);
  (void)program.line();
  const std::uint64_t since = coverRoot(home, {.mayRecord = false});
  for (int round = 0; round < 20; ++round) {
    const std::string name = "new" + std::to_string(round);
    home.temp.folder("root/" + name + "/inner");
    std::vector<std::jthread> clients;
    clients.reserve(3);
    for (int client = 0; client < 3; ++client) {
      clients.emplace_back([&] {
        const Reported found = historySince(home, {.mayRecord = false}, since);
        EXPECT_EQ(found.at(home.at(name)), EventFlag::mustScanSubdirs);
        EXPECT_FALSE(isLost(found, home.root));
      });
    }
  }
}

TEST(Stream, MayBeStoppedByItsOwnDelivery) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log);
  ManualBackgroundQueue queue;
  std::unique_ptr<EventStream> stream;
  bool stopped = false;
  stream = events.create({.root = home.root, .since = events.currentEventId()}, queue,
                         [&](std::span<const FolderEvent>) {
                           stream->stop();
                           stopped = true;
                         });
  ASSERT_TRUE(stream->start());
  queue.runUntil([&] { return stopped; });
}

TEST(Stream, GathersLiveEventsForItsLatency) {
  EventHome home;
  home.temp.folder("root/a");
  home.temp.folder("root/.settled");
  LinuxEvents events(home.threads, home.folders, home.log);
  ManualBackgroundQueue queue;
  Reported delivered;
  const std::uint64_t since = events.cover(home.root, EventService::CoverMode::wait, {}).since;
  const auto stream =
      events.create({.root = home.root, .since = since, .latency = std::chrono::duration<double>(1.0)}, queue,
                    [&](std::span<const FolderEvent> some) {
                      for (const FolderEvent& event : some) delivered[event.path] |= event.flags;
                    });
  ASSERT_TRUE(stream->start());
  queue.runUntil([&] { return !delivered.empty(); });
  delivered.clear();
  home.temp.file("root/a/file");
  while (queue.pendingCount() == 0) std::this_thread::yield();
  queue.advance(std::chrono::duration<double>(0.9));
  EXPECT_EQ(delivered, Reported());
  queue.advance(std::chrono::duration<double>(0.1));
  EXPECT_TRUE(delivered.contains(home.at("a")));
}

}  // namespace
}  // namespace quon::test
