// One recorder a user: who it is, and what happens when it ends or is killed.
#include <csignal>
#include <gtest/gtest.h>
#include <string>
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

TEST(Recorder, KilledIsReplacedByAWaitingClientThatClosesTheGap) {
  EventHome home;
  home.temp.folder("root/before");
  home.temp.folder("root/after");
  RecorderProgram program(home);
  (void)program.line();
  Follower follower(home);  // its recorder waits for the lock
  home.temp.file("root/before/file");
  ASSERT_EQ(program.end(SIGKILL), -SIGKILL);
  home.temp.file("root/after/file");
  Reported found = follower.changes();
  EXPECT_TRUE(found.contains(home.at("before")));
  EXPECT_TRUE(found.contains(home.at("after")));
  EXPECT_EQ(found[home.root] & EventFlag::lostTrack, 0U);
}

TEST(Recorder, KilledLosesNothingForTheNext) {
  EventHome home;
  for (const char* name : {"root/recorded", "root/unwritten", "root/unseen"}) home.temp.folder(name);
  RecorderProgram program(home);
  (void)program.line();
  const std::uint64_t since = coverRoot(home, {.mayRecord = false});
  home.temp.file("root/recorded/file");
  (void)historySince(home, {.mayRecord = false}, since);
  home.temp.file("root/unwritten/file");  // perhaps
  EXPECT_EQ(program.end(SIGKILL), -SIGKILL);
  home.temp.file("root/unseen/file");
  const Reported found = historySince(home, {}, since);
  for (const char* name : {"recorded", "unwritten", "unseen"})
    EXPECT_TRUE(found.contains(home.at(name))) << name;
}

TEST(Recorder, ServesAClientThatAsksFurtherBackWithoutReportingToOthers) {
  EventHome home;
  home.temp.folder("root/.settled");
  const std::uint64_t early = LinuxEvents(home.threads, home.folders, home.log).currentEventId();
  home.temp.folder("root/a/new");
  Follower late(home);
  (void)late.changes();
  EXPECT_TRUE(historySince(late.events, home.root, early).contains(home.at("a")));
  EXPECT_EQ(late.changes(), Reported());
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
  const auto stream = events.create(
      {.root = home.root, .since = events.currentEventId(), .latency = std::chrono::duration<double>(1.0)},
      queue, [&](std::span<const FolderEvent> some) {
        for (const FolderEvent& event : some) delivered[event.path] |= event.flags;
      });
  ASSERT_TRUE(stream->start());
  queue.runUntil([&] { return !delivered.empty(); });
  delivered.clear();
  home.temp.file("root/a/file");
  // The streams of a service are served in the order of their start. When one that was started later has got
  // an event of a second round, the first has gathered what the round before was for.
  Listener later(events, home.root, events.currentEventId());
  ASSERT_TRUE(later.waitForHistory());
  for (int round = 0; round < 2; ++round) settle(events, home.root, later, home.at(".settled"));
  queue.advance(std::chrono::duration<double>(0.9));
  EXPECT_EQ(delivered, Reported());
  queue.advance(std::chrono::duration<double>(0.1));
  EXPECT_TRUE(delivered.contains(home.at("a")));
}

}  // namespace
}  // namespace quon::test
