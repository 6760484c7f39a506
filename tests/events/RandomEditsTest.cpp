// Random edits, and the two ways to learn of them: live, and as the history of a recorder that ran. Each is
// held against two snapshots of the tree.
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "EventHome.h"
#include "Snapshot.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

constexpr int kFirstEdits = 200;
constexpr int kRounds = 12;
constexpr int kEditsARound = 40;
constexpr std::size_t kEditsShown = 80;

std::string joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  return all;
}

std::string lastEdits(const TreeEditor& editor) {
  const auto& log = editor.log();
  const std::size_t first = log.size() > kEditsShown ? log.size() - kEditsShown : 0;
  return joined({log.begin() + static_cast<std::ptrdiff_t>(first), log.end()});
}

class RandomEdits : public WithBackEnd {};

/// Edits at random, round by round; each time `report` returns the folders that were reported for them.
void expectReportsOfEdits(EventHome& home, TreeEditor& editor, const std::function<Reported()>& report) {
  Snapshot before(home.root);
  for (int round = 0; round < kRounds; ++round) {
    for (int edit = 0; edit < kEditsARound; ++edit) editor.edit();
    const Reported reported = report();
    const Snapshot after(home.root);
    ASSERT_FALSE(isLost(reported, home.root)) << home.log.all();
    const auto missed = after.missedSince(before, reported);
    ASSERT_EQ(joined(missed), "") << lastEdits(editor) << home.log.all();
    before = after;
  }
}

TEST_P(RandomEdits, AreReportedLive) {
  EventHome home;
  TreeEditor editor(home.root, randomSeed());
  editor.populate(kFirstEdits);
  Follower follower(home, options());
  expectReportsOfEdits(home, editor, [&] { return follower.changesSettledIn(home.root); });
}

TEST_P(RandomEdits, AreInTheHistoryOfARecorderThatRan) {
  EventHome home;
  TreeEditor editor(home.root, randomSeed());
  editor.populate(kFirstEdits);
  const RunningRecorder recorder(home, options());
  std::uint64_t since = coverRoot(home, options());
  expectReportsOfEdits(home, editor, [&] {
    LinuxEvents events(home.threads, home.folders, home.log, options());
    const std::uint64_t now = events.currentEventId();
    return historySince(events, home.root, std::exchange(since, now));
  });
}

INSTANTIATE_TEST_SUITE_P(BackEnds, RandomEdits, eachBackEnd(), backEndName);

}  // namespace
}  // namespace quon::test
