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

TEST(Program, RecordsUntilItIsToldToEnd) {
  EventHome home;
  RecorderProgram program(home);
  EXPECT_EQ(program.line(), "recording file-system changes in " + home.folders.state);
  LinuxEvents events(home.threads, home.folders, home.log, {.mayRecord = false});
  const std::uint64_t since = events.currentEventId();
  (void)historySince(events, home.root, since);
  home.temp.file("root/file");
  EXPECT_TRUE(historySince(events, home.root, since).contains(home.root));
  EXPECT_EQ(program.end(SIGTERM), 0);
}

TEST(Program, FailsWithALineWhileAnotherIsAtWork) {
  EventHome home;
  RecorderProgram first(home);
  (void)first.line();
  RecorderProgram second(home);
  const std::string line = second.line();
  EXPECT_TRUE(line.starts_with("quon-recorder: another recorder is at work (process ")) << line;
  EXPECT_EQ(second.end(), 1);
  EXPECT_EQ(first.end(SIGINT), 0);
}

TEST(Program, WaitsForItsTurnWhenAsked) {
  EventHome home;
  RecorderProgram first(home);
  (void)first.line();
  RecorderProgram second(home, {"--wait"});
  EXPECT_TRUE(second.line().starts_with("waiting for another recorder to end (process "));
  EXPECT_EQ(first.end(SIGKILL), -SIGKILL);
  EXPECT_TRUE(second.line().starts_with("recording "));
  EXPECT_EQ(second.end(SIGTERM), 0);
}

TEST(Program, EndsWhileItWaits) {
  EventHome home;
  RecorderProgram first(home);
  (void)first.line();
  RecorderProgram second(home, {"--wait"});
  EXPECT_TRUE(second.line().starts_with("waiting "));
  EXPECT_EQ(second.end(SIGTERM), 0);
}

TEST(Program, RefusesWhatItDoesNotKnow) {
  EventHome home;
  EXPECT_EQ(RecorderProgram(home, {"--backend", "pigeons"}).end(), 2);
  EXPECT_EQ(RecorderProgram(home, {"--help"}).end(), 0);
  EXPECT_EQ(RecorderProgram(home, {"--version"}).end(), 0);
}

TEST(Recorder, KilledIsReplacedByAWaitingClientThatClosesTheGap) {
  EventHome home;
  home.temp.folder("root/.settled");
  home.temp.folder("root/before");
  home.temp.folder("root/after");
  RecorderProgram program(home);
  (void)program.line();
  LinuxEvents events(home.threads, home.folders, home.log);  // its recorder waits for the lock
  const std::uint64_t since = events.currentEventId();
  Listener listener(events, home.root, since);
  ASSERT_TRUE(listener.waitForHistory());
  home.temp.file("root/before/file");
  ASSERT_EQ(program.end(SIGKILL), -SIGKILL);
  home.temp.file("root/after/file");
  settle(events, home.root, listener);
  auto found = listener.take();
  EXPECT_TRUE(found.contains(home.root + "/before"));
  EXPECT_TRUE(found.contains(home.root + "/after"));
  EXPECT_EQ(found[home.root] & EventFlag::lostTrack, 0U);
}

TEST(Recorder, KilledLosesNothingForTheNext) {
  EventHome home;
  for (const char* name : {"root/recorded", "root/unwritten", "root/unseen"}) home.temp.folder(name);
  std::uint64_t since = 0;
  {
    RecorderProgram program(home);
    (void)program.line();
    LinuxEvents events(home.threads, home.folders, home.log, {.mayRecord = false});
    since = events.currentEventId();
    (void)historySince(events, home.root, since);
    home.temp.file("root/recorded/file");
    (void)historySince(events, home.root, since);
    home.temp.file("root/unwritten/file");  // perhaps
    EXPECT_EQ(program.end(SIGKILL), -SIGKILL);
  }
  home.temp.file("root/unseen/file");
  LinuxEvents events(home.threads, home.folders, home.log);
  const auto found = historySince(events, home.root, since);
  for (const char* name : {"/recorded", "/unwritten", "/unseen"})
    EXPECT_TRUE(found.contains(home.root + name)) << name;
}

TEST(Recorder, ServesTwoClientsAtOnceAndEachFromItsOwnTime) {
  EventHome home;
  home.temp.folder("root/.settled");
  home.temp.folder("root/a");
  home.temp.folder("root/b");
  LinuxEvents first(home.threads, home.folders, home.log);
  LinuxEvents second(home.threads, home.folders, home.log);
  const std::uint64_t early = first.currentEventId();
  Listener one(first, home.root, early);
  ASSERT_TRUE(one.waitForHistory());
  home.temp.file("root/a/file");
  settle(first, home.root, one);
  EXPECT_TRUE(one.take().contains(home.root + "/a"));
  const std::uint64_t late = second.currentEventId();
  Listener two(second, home.root, late);
  Listener three(second, home.root, early);
  ASSERT_TRUE(two.waitForHistory());
  ASSERT_TRUE(three.waitForHistory());
  EXPECT_FALSE(two.take().contains(home.root + "/a"));
  EXPECT_TRUE(three.take().contains(home.root + "/a"));
  home.temp.file("root/b/file");
  for (Listener* each : {&one, &two, &three}) {
    settle(second, home.root, *each);
    EXPECT_TRUE(each->take().contains(home.root + "/b"));
  }
}

TEST(Recorder, AClientThatAsksFurtherBackIsServedWithoutTroublingTheOthers) {
  EventHome home;
  home.temp.folder("root/.settled");
  LinuxEvents events(home.threads, home.folders, home.log);
  const std::uint64_t early = events.currentEventId();
  home.temp.folder("root/a/new");
  Listener late(events, home.root, events.currentEventId() + 1);
  ASSERT_TRUE(late.waitForHistory());
  settle(events, home.root, late);
  (void)late.take();
  EXPECT_EQ(historySince(events, home.root, early).count(home.root + "/a"), 1U);
  settle(events, home.root, late);
  EXPECT_EQ(late.take().size(), 1U) << "the settled folder alone";
}

TEST(Recorder, HandsOverToTheNextClientWhenItsServiceEnds) {
  EventHome home;
  home.temp.folder("root/.settled");
  home.temp.folder("root/a");
  auto first = std::make_unique<LinuxEvents>(home.threads, home.folders, home.log);
  (void)historySince(*first, home.root, first->currentEventId());
  LinuxEvents second(home.threads, home.folders, home.log);
  Listener listener(second, home.root, second.currentEventId());
  ASSERT_TRUE(listener.waitForHistory());
  first.reset();
  home.temp.file("root/a/file");
  settle(second, home.root, listener);
  EXPECT_TRUE(listener.take().contains(home.root + "/a"));
}

TEST(Stream, StopsFromAnyThreadAndSaysNothingAfter) {
  EventHome home;
  home.temp.folder("root/.settled");
  LinuxEvents events(home.threads, home.folders, home.log);
  Listener stopped(events, home.root, events.currentEventId());
  Listener other(events, home.root, events.currentEventId());
  ASSERT_TRUE(stopped.waitForHistory());
  ASSERT_TRUE(other.waitForHistory());
  stopped.stop();
  stopped.stop();
  const std::size_t before = stopped.all().size();
  home.temp.file("root/file");
  settle(events, home.root, other);
  EXPECT_EQ(stopped.all().size(), before);
}

TEST(Stream, MayStopItselfFromItsOwnDelivery) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log);
  std::unique_ptr<EventStream> stream;
  Mutex lock;
  Condition changed;
  bool done = false;
  {
    ThreadQueue queue;
    stream = events.create({.root = home.root, .since = events.currentEventId()}, queue,
                           [&](std::span<const FolderEvent>) {
                             stream->stop();
                             MutexLock held(lock);
                             done = true;
                             changed.broadcast();
                           });
    ASSERT_TRUE(stream->start());
    MutexLock held(lock);
    while (!done) changed.wait(lock);
  }
}

TEST(Stream, GathersLiveEventsForItsLatency) {
  EventHome home;
  home.temp.folder("root/.settled");
  home.temp.folder("root/a");
  LinuxEvents events(home.threads, home.folders, home.log);
  Listener other(events, home.root, events.currentEventId());
  ManualBackgroundQueue queue;
  std::vector<FolderEvent> delivered;
  const auto stream = events.create(
      {.root = home.root, .since = events.currentEventId(), .latency = std::chrono::duration<double>(1.0)},
      queue, [&](std::span<const FolderEvent> some) { delivered.assign(some.begin(), some.end()); });
  ASSERT_TRUE(stream->start());
  queue.runUntil([&] { return !delivered.empty(); });
  EXPECT_EQ(delivered.back().flags, EventFlag::historyDone);
  delivered.clear();
  home.temp.file("root/a/file");
  ASSERT_TRUE(other.waitForHistory());
  settle(events, home.root, other);
  queue.advance(std::chrono::duration<double>(0.9));
  EXPECT_TRUE(delivered.empty());
}

}  // namespace
}  // namespace quon::test
