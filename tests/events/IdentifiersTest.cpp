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

/// Two clocks that stand still.
class StandingClock final : public EventClock {
 public:
  [[nodiscard]] std::uint64_t wallMicros() const override { return wall; }
  [[nodiscard]] std::uint64_t steadyMicros() const override { return steady; }
  void pass(std::uint64_t micros) {
    wall += micros;
    steady += micros;
  }

  std::uint64_t wall = 1'700'000'000'000'000;
  std::uint64_t steady = 5000;
};

TEST(EventIds, GrowWithTheClockAndAgainstIt) {
  StandingClock clock;
  EventIds ids(clock, 0);
  EXPECT_EQ(ids.next(), clock.wall);
  EXPECT_EQ(ids.next(), clock.wall + 1);
  EXPECT_FALSE(ids.noticeStep());

  clock.wall += kHour;
  EXPECT_EQ(ids.next(), clock.wall);
  EXPECT_FALSE(ids.noticeStep());

  const std::uint64_t highest = clock.wall;
  clock.wall -= kHour;
  const auto step = ids.noticeStep();
  ASSERT_TRUE(step);
  EXPECT_EQ(step->low, clock.wall);
  EXPECT_EQ(step->high, highest);
  // They go on from the highest time that the clock has shown, and run with the other clock.
  clock.pass(3 * kSecond);
  EXPECT_EQ(ids.next(), highest + 3 * kSecond);
  EXPECT_FALSE(ids.noticeStep());
}

TEST(EventIds, NeverRepeatOneThatWasHandedOutBefore) {
  StandingClock clock;
  const std::uint64_t future = clock.wall + static_cast<std::uint64_t>(kHour);
  EventIds ids(clock, future);
  EXPECT_EQ(ids.next(), future + 1);
  ids.raise(future + 10);
  ids.raise(5);
  EXPECT_EQ(ids.next(), future + 11);
}

TEST(CurrentEventId, GrowsWithoutAJournalAndMakesNone) {
  EventHome home;
  SetClock clock;
  LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
  const std::uint64_t begin = clock.wallMicros();
  const std::uint64_t first = events.currentEventId();
  EXPECT_GE(first, begin);
  EXPECT_GT(events.currentEventId(), first);
  clock.shift(-kHour);
  EXPECT_GT(events.currentEventId(), first);
  EXPECT_FALSE(std::filesystem::exists(home.folders.state));
}

TEST(Resuming, FromTheFutureReportsThatIdentifiersWrapped) {
  EventHome home;
  LinuxEvents events(home.threads, home.folders, home.log);
  const std::uint64_t future = events.currentEventId() + static_cast<std::uint64_t>(kHour);
  for (const std::uint64_t since : {future, std::numeric_limits<std::uint64_t>::max()})
    EXPECT_EQ(historySince(events, home.root, since)[home.root], EventFlag::idsWrapped);
}

TEST(Resuming, FromBeforeTheClockWasSetBackWithoutARecorderReportsLostTrack) {
  EventHome home;
  SetClock clock;
  clock.shift(kHour);
  const std::uint64_t since = coverRoot(home, {.clock = &clock}) - kSecond;
  clock.shift(-kHour);
  // In the future, by the clock.
  EXPECT_NE(historySince(home, {.clock = &clock}, since)[home.root] & EventFlag::lostTrack, 0U);
  clock.shift(2 * kHour);
  // No longer so, but what changed after it may have older times.
  EXPECT_EQ(historySince(home, {.clock = &clock}, since)[home.root], EventFlag::idsWrapped);
}

TEST(Resuming, AcrossAClockThatIsSetBackWhileARecorderRunsLosesNothing) {
  EventHome home;
  home.temp.folder("root/a");
  SetClock clock;
  Follower follower(home, {.clock = &clock});
  (void)follower.changes();
  const std::uint64_t since = follower.events.currentEventId();
  clock.shift(-kHour);
  home.temp.file("root/a/file");
  (void)follower.changes();
  ASSERT_TRUE(follower.listener.waitForFolder(home.at("a"), since));
  const Reported history = historySince(follower.events, home.root, since);
  EXPECT_TRUE(history.contains(home.at("a")));
  EXPECT_FALSE(history.contains(home.root)) << "lost track, with a journal that covers all";
}

}  // namespace
}  // namespace quon::test
