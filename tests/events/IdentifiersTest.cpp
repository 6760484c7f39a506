// Identifiers are times that only grow, whatever happens to the clock.
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "EventHome.h"

namespace quon::test {
namespace {

constexpr std::int64_t kHour = 3'600'000'000;
constexpr std::uint64_t kSecond = 1'000'000;

TEST(EventIds, GrowWithTheClockAndAgainstIt) {
  SetClock clock;
  EventIds ids(clock, 0);
  const std::uint64_t first = ids.next();
  EXPECT_NEAR(static_cast<double>(first), static_cast<double>(clock.wallMicros()), 1e6);
  EXPECT_FALSE(ids.noticeStep().has_value());

  clock.shift(kHour);
  const std::uint64_t ahead = ids.next();
  EXPECT_GT(ahead, first + static_cast<std::uint64_t>(kHour) - kSecond);
  EXPECT_FALSE(ids.noticeStep().has_value());

  clock.shift(-kHour);
  const auto step = ids.noticeStep();
  ASSERT_TRUE(step.has_value());
  EXPECT_NEAR(static_cast<double>(step->high - step->low), static_cast<double>(kHour), 1e6);
  // They go on from the highest time that the clock has shown, and run with the other clock.
  const std::uint64_t after = ids.next();
  EXPECT_GT(after, ahead);
  EXPECT_LT(after, ahead + 10 * kSecond);
  EXPECT_FALSE(ids.noticeStep().has_value());
}

TEST(EventIds, NeverRepeatOneThatWasHandedOutBefore) {
  SetClock clock;
  const std::uint64_t future = clock.wallMicros() + static_cast<std::uint64_t>(kHour);
  EventIds ids(clock, future);
  EXPECT_EQ(ids.next(), future + 1);
  EXPECT_EQ(ids.next(), future + 2);
  ids.raise(future + 10);
  ids.raise(5);
  EXPECT_EQ(ids.next(), future + 11);
}

TEST(CurrentEventId, GrowsWithoutAJournalAndMakesNone) {
  EventHome home;
  SetClock clock;
  LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
  const std::uint64_t first = events.currentEventId();
  EXPECT_GE(first, SystemEventClock().wallMicros() - 10 * kSecond);
  EXPECT_GT(events.currentEventId(), first);
  clock.shift(-kHour);
  EXPECT_GT(events.currentEventId(), first);
  EXPECT_FALSE(std::filesystem::exists(home.folders.state));
}

TEST(Resuming, FromTheFutureSaysThatIdentifiersWrapped) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log);
  Listener listener(events, home.root, events.currentEventId() + static_cast<std::uint64_t>(kHour));
  ASSERT_TRUE(listener.waitForHistory());
  EXPECT_EQ(listener.take()[home.root], EventFlag::idsWrapped);
}

TEST(Resuming, AnIdentifierThatNoNumberOfTheJournalHolds) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log);
  Listener listener(events, home.root, std::numeric_limits<std::uint64_t>::max());
  ASSERT_TRUE(listener.waitForHistory());
  EXPECT_EQ(listener.take()[home.root], EventFlag::idsWrapped);
}

TEST(Resuming, FromBeforeTheClockWasSetBackWithoutARecorder) {
  EventHome home;
  SetClock clock;
  clock.shift(kHour);
  std::uint64_t since = 0;
  {
    LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
    since = events.currentEventId();
    (void)historySince(events, home.root, since);
  }
  clock.shift(-kHour);
  {
    // Still in the future, by the clock.
    LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
    Listener listener(events, home.root, since - kSecond);
    ASSERT_TRUE(listener.waitForHistory());
    EXPECT_NE(listener.take()[home.root] & EventFlag::lostTrack, 0U);
  }
  clock.shift(2 * kHour);
  // No longer so, but what changed after it may bear older times.
  LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
  Listener listener(events, home.root, since - kSecond);
  ASSERT_TRUE(listener.waitForHistory());
  EXPECT_EQ(listener.take()[home.root], EventFlag::idsWrapped);
}

TEST(Resuming, AcrossAClockThatIsSetBackWhileARecorderRuns) {
  EventHome home;
  home.temp.folder("root/.settled");
  home.temp.folder("root/a");
  SetClock clock;
  LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
  Listener listener(events, home.root, events.currentEventId());
  ASSERT_TRUE(listener.waitForHistory());
  settle(events, home.root, listener);
  const std::uint64_t since = events.currentEventId();
  clock.shift(-kHour);
  home.temp.file("root/a/file");
  settle(events, home.root, listener);
  for (const FolderEvent& event : listener.all()) {
    if (event.path == home.root + "/a" && event.flags == 0) {
      EXPECT_GT(event.id, since);
    }
  }
  const auto history = historySince(events, home.root, since);
  EXPECT_EQ(history.count(home.root + "/a"), 1U);
  EXPECT_EQ(history.count(home.root), 0U) << "lost track, with a journal that knows all";
}

}  // namespace
}  // namespace quon::test
