// Random edits, and the two ways to learn of them: live, and as the history of a recorder that ran. Each is
// held against two snapshots of the tree.
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "EventHome.h"
#include "Snapshot.h"
#include "support/ChildProcess.h"
#include "support/Seed.h"
#include "support/Shell.h"
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

void expectLiveEventsOfEdits(EventHome& home, const EventOptions& options, std::uint64_t seed) {
  TreeEditor editor(home.root, seed);
  editor.populate(kFirstEdits);
  Follower follower(home, options);
  expectReportsOfEdits(home, editor, [&] { return follower.changesSettledIn(home.root); });
}

TEST_P(RandomEdits, AreReportedLive) {
  EventHome home;
  expectLiveEventsOfEdits(home, options(), randomSeed());
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

/// The random edits on a file system of its own, mounted by the command, with $1 for an image and $2 for the
/// folder.
void onFileSystem(const std::string& command, const std::function<void(EventHome&, std::uint64_t)>& body) {
  const std::uint64_t seed = randomSeed();
  inPrivateMounts([&] {
    EventHome home;
    const std::string image = home.temp.file("image", 400U << 20U);
    if (!shell(command, {image, home.root})) GTEST_SKIP() << "cannot do: " << command;
    body(home, seed);
  });
}

void liveEvents(EventHome& home, std::uint64_t seed) {
  expectLiveEventsOfEdits(home, {}, seed);
}

TEST(RandomEditsOn, Ext4) {
  onFileSystem("mkfs.ext4 -q $1; mount -o loop $1 $2", liveEvents);
}
TEST(RandomEditsOn, Xfs) {
  onFileSystem("mkfs.xfs -q $1; mount -o loop $1 $2", liveEvents);
}
TEST(RandomEditsOn, ASubvolumeOfBtrfs) {
  onFileSystem(
      "mkfs.btrfs -q $1; mount -o loop $1 $2; btrfs subvolume create $2/sub; umount $2; "
      "mount -o loop,subvol=sub $1 $2",
      liveEvents);
}

}  // namespace
}  // namespace quon::test
