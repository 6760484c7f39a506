// Identifiers are times that only grow, whatever happens to the clock.
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "EventHome.h"

namespace quon::test {
namespace {

constexpr std::int64_t kHour = 3'600'000'000;
constexpr std::uint64_t kSecond = 1'000'000;

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
