// Random edits, and the three ways to learn of them: live, from the journal of a recorder that ran, and by the sweep
// when none did. Each is held against two snapshots of the tree.
#include <gtest/gtest.h>
#include <string>

#include "EventHome.h"
#include "Snapshot.h"
#include "support/ChildProcess.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

constexpr int kFirstEdits = 200;
constexpr int kRounds = 12;
constexpr int kEditsARound = 40;

std::string joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  return all;
}

std::string lastEdits(const TreeEditor& editor) {
  const auto& log = editor.log();
  const std::size_t first = log.size() > 2 * kEditsARound ? log.size() - 2 * kEditsARound : 0;
  return joined({log.begin() + static_cast<std::ptrdiff_t>(first), log.end()});
}

class RandomEdits : public testing::TestWithParam<EventBackEnd> {
 protected:
  void SetUp() override {
    if (GetParam() == EventBackEnd::fanotify && !mayUseFanotify()) {
      GTEST_SKIP() << "fanotify takes root, or CAP_SYS_ADMIN and CAP_DAC_READ_SEARCH";
    }
  }
  [[nodiscard]] EventOptions options() const { return {.backEnd = GetParam()}; }
};

TEST_P(RandomEdits, AreReportedLive) {
  EventHome home;
  home.temp.folder("root/.settled");
  TreeEditor editor(home.root, randomSeed());
  editor.populate(kFirstEdits);
  LinuxEvents events(home.folders, home.log, options());
  Listener listener(events, home.root, events.currentEventId());
  ASSERT_TRUE(listener.begun());
  ASSERT_TRUE(listener.waitForHistory());
  Snapshot before(home.root);
  (void)listener.take();
  for (int round = 0; round < kRounds; ++round) {
    for (int edit = 0; edit < kEditsARound; ++edit) editor.edit();
    settle(events, home.root, listener);
    const Snapshot after(home.root);
    ASSERT_EQ(joined(after.missedSince(before, listener.take(), Snapshot::HardLinks::ofTheirFolder)), "")
        << lastEdits(editor) << home.log.all();
    before = after;
  }
}

TEST_P(RandomEdits, AreInTheHistoryOfARecorderThatRan) {
  EventHome home;
  TreeEditor editor(home.root, randomSeed());
  editor.populate(kFirstEdits);
  const RunningRecorder recorder(home, options());
  std::uint64_t since = 0;
  {
    LinuxEvents events(home.folders, home.log, options());
    since = events.currentEventId();
    (void)historySince(events, home.root, since);
  }
  Snapshot before(home.root);
  for (int round = 0; round < kRounds; ++round) {
    for (int edit = 0; edit < kEditsARound; ++edit) editor.edit();
    const Snapshot after(home.root);
    LinuxEvents events(home.folders, home.log, options());
    const std::uint64_t now = events.currentEventId();
    const auto reported = historySince(events, home.root, since);
    ASSERT_EQ(joined(after.missedSince(before, reported, Snapshot::HardLinks::ofTheirFolder)), "")
        << lastEdits(editor) << home.log.all();
    before = after;
    since = now;
  }
}

TEST_P(RandomEdits, AreFoundByASweepWhenNoRecorderRan) {
  EventHome home;
  TreeEditor editor(home.root, randomSeed());
  editor.populate(kFirstEdits);
  std::uint64_t since = LinuxEvents(home.folders, home.log, options()).currentEventId();
  Snapshot before(home.root);
  for (int round = 0; round < kRounds; ++round) {
    for (int edit = 0; edit < kEditsARound; ++edit) editor.edit();
    const Snapshot after(home.root);
    LinuxEvents events(home.folders, home.log, options());
    const std::uint64_t now = events.currentEventId();
    const auto reported = historySince(events, home.root, since);
    ASSERT_EQ(joined(after.missedSince(before, reported, Snapshot::HardLinks::ofEveryFolder)), "")
        << lastEdits(editor) << home.log.all();
    before = after;
    since = now;
  }
}

INSTANTIATE_TEST_SUITE_P(BackEnds, RandomEdits, testing::Values(EventBackEnd::inotify, EventBackEnd::fanotify),
                         [](const auto& tested) {
                           return tested.param == EventBackEnd::inotify ? "Inotify" : "Fanotify";
                         });

}  // namespace
}  // namespace quon::test
