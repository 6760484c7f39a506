// Identifiers are times that only grow, whatever happens to the clock.
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "EventHome.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kHour = 3'600'000'000;

TEST(Resuming, FromTheFutureReportsThatTheClockWasSetBack) {
  EventHome home;
  Follower follower(home);
  LinuxEvents& events = follower.events;
  const std::uint64_t future = events.currentEventId() + static_cast<std::uint64_t>(kHour);
  for (const std::uint64_t since : {future, std::numeric_limits<std::uint64_t>::max()})
    EXPECT_EQ(historySince(events, home.root, since)[home.root], EventFlag::idsWrapped);
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
  EXPECT_FALSE(isLost(history, home.root));
}

TEST(CurrentIdentifier, NeverGoesBackWithTheClockNorToAnotherRecorder) {
  EventHome home;
  SetClock clock;
  const EventOptions how{.clock = &clock};
  const EventOptions silent{.clock = &clock, .mayRecord = false};
  std::uint64_t newest = 0;
  {
    Follower follower(home, how);
    clock.shift(-kHour);
    home.temp.file("root/file");
    (void)follower.changes();
    newest = follower.events.currentEventId();
    // Also when the recorder has no time to write it down.
    fs::copy(home.folders.state + "/journal.sqlite", home.temp.at("killed"));
  }
  EXPECT_GE(LinuxEvents(home.threads, home.folders, home.log, silent).currentEventId(), newest);
  fs::copy(home.temp.at("killed"), home.folders.state + "/journal.sqlite",
           fs::copy_options::overwrite_existing);
  EXPECT_GE(LinuxEvents(home.threads, home.folders, home.log, silent).currentEventId(), newest);
  EXPECT_GT(coverRoot(home, how), newest);
}

}  // namespace
}  // namespace quon::test
