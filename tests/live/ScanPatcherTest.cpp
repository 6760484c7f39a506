#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "ScannedTree.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

class ScanPatcherTest : public ScannedTree {};

TEST_F(ScanPatcherTest, FindsFoldersByPathAndForgetsDeletedOnes) {
  tree.file("a/b/c/f", 1);
  tree.folder("ab");
  const std::string index = scan("patched");
  ScanPatcher patcher(index, root);
  const std::int64_t top = *patcher.dirId(root);
  const std::int64_t a = *patcher.dirId(root + "/a");
  EXPECT_EQ(patcher.path(*patcher.dirId(root + "/a/b/c")), root + "/a/b/c");
  EXPECT_EQ(patcher.path(top), root);
  EXPECT_EQ(patcher.dirId(root + "/a/missing/c"), std::nullopt);
  EXPECT_EQ(patcher.dirId("/elsewhere"), std::nullopt);
  EXPECT_EQ(patcher.dirId(root + "b"), std::nullopt);
  EXPECT_EQ(patcher.dirIdsUnder(a).size(), 3U);
  const std::int64_t ab = *patcher.dirId(root + "/ab");
  patcher.deleteSubtree(a, root + "/a");
  EXPECT_EQ(patcher.dirId(root + "/a"), std::nullopt);
  EXPECT_EQ(patcher.dirId(root + "/a/b"), std::nullopt);
  EXPECT_EQ(patcher.dirId(root + "/ab"), ab);
  EXPECT_EQ(patcher.childNames(top), std::vector<std::string>{"ab"});
}

TEST_F(ScanPatcherTest, WithoutCommitEveryRowStaysAsItWas) {
  TreeEditor(root, randomSeed()).populate(60);
  const std::string index = scan("patched");
  const std::string before = readBytes(index);
  {
    ScanPatcher patcher(index, root);
    patcher.replaceFiles(*patcher.dirId(root), {}, 7, true);
    for (const StoredDir& child : patcher.children(*patcher.dirId(root))) {
      patcher.deleteSubtree(child.id, root + "/" + child.name);
    }
    patcher.updateTopFiles({});
  }
  EXPECT_EQ(readBytes(index), before);
}

TEST_F(ScanPatcherTest, CommitWritesWhatTheLoaderReads) {
  tree.file("f", 3);
  const std::string index = scan("patched");
  {
    ScanPatcher patcher(index, root);
    patcher.replaceFiles(*patcher.dirId(root), {}, -5, true);
    patcher.updateTopFiles({{"/x/\xff", 9, 8, -7}});
    patcher.commit(123456789012345, 1700000000.125);
  }
  const Loaded loaded = load(index);
  EXPECT_EQ(loaded.lastEventId, 123456789012345U);
  EXPECT_EQ(loaded.scannedAt, 1700000000.125);
  EXPECT_EQ(loaded.result.hardlinksDeduped, 0U);
  EXPECT_EQ(loaded.result.topFiles, (std::vector<TopFile>{{"/x/\xff", 9, 8, -7}}));
  EXPECT_EQ(loaded.result.root->totalFiles, 0U);
  EXPECT_EQ(loaded.result.root->mtime, -5);
  EXPECT_TRUE(loaded.result.root->error);
}

/// The process is killed in the middle of patching, a hundred times at random moments: what is found
/// afterwards is the index of before the batch or of after it, whole.
TEST_F(ScanPatcherTest, KilledWhilePatchingLeavesAWholeIndex) {
  const std::uint64_t seed = randomSeed();
  TreeEditor editor(root, seed);
  editor.populate(150);
  const std::string index = scan("patched");
  for (int round = 0; round < 100; ++round) {
    for (int edit = 0; edit < 6; ++edit) editor.edit();
    const Refresh::Changes changes = Refresh::coalesce(editor.takeEvents(), root, {});
    const std::string before = work.at("before.sqlite");
    writeBytes(before, readBytes(index));
    const std::uint64_t eventId = 1000 + static_cast<std::uint64_t>(round);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      // Dies of an alarm after a random number of microseconds, most of them within the patch.
      const auto delay =
          static_cast<useconds_t>((seed + static_cast<std::uint64_t>(round) * 7919) % 6000 + 1);
      ::signal(SIGALRM, SIG_DFL);
      ::ualarm(delay, 0);
      patch(platform, index, changes, eventId);
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    const Loaded found = load(index);
    if (found.lastEventId != eventId) {
      ASSERT_EQ(differences(index, before), "") << "round " << round;
      patch(platform, index, changes, eventId);
    }
  }
  EXPECT_EQ(load(index).result.root->totalLogical, load(scan("fresh")).result.root->totalLogical);
}

}  // namespace
}  // namespace quon::test
