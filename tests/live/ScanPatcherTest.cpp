#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "live/Refresh.h"
#include "live/ScanPatcher.h"
#include "platform_linux/LinuxPlatform.h"
#include "store/FolderScan.h"
#include "store/ScanStore.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/Seed.h"
#include "support/TempFolder.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

constexpr std::uint64_t kMinKeep = 1048576;

class ScanPatcherTest : public ::testing::Test {
 protected:
  std::string scan() {
    FolderScan run(platform.services(), {.root = root, .indexDirectory = work.path});
    return run.run().index;
  }

  const LinuxPlatform platform;
  TempFolder work;
  TempFolder tree;
  const std::string root = tree.path;
};

TEST_F(ScanPatcherTest, FindsFoldersByPathAndForgetsDeletedOnes) {
  tree.file("a/b/c/f", 1);
  tree.folder("ab");
  const std::string index = scan();
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
  const std::string index = scan();
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
  const std::string index = scan();
  {
    ScanPatcher patcher(index, root);
    patcher.replaceFiles(*patcher.dirId(root), {}, -5, true);
    patcher.updateTopFiles({{"/x/\xff", 9, 8, -7}});
    patcher.commit(123456789012345, 1700000000.125);
  }
  const Loaded loaded = ScanStore::load(index, root, kMinKeep);
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
  const std::string index = scan();
  const std::uint32_t device = ScanStore::load(index, root, kMinKeep).rootDev;
  for (int round = 0; round < 100; ++round) {
    for (int edit = 0; edit < 6; ++edit) editor.edit();
    const Refresh::Changes changes = Refresh::coalesce(editor.takeEvents(), root, {});
    const std::string before = work.at("before.sqlite");
    writeBytes(before, readBytes(index));
    const auto patch = [&] {
      ScanPatcher patcher(index, root);
      Refresh::Batch batch =
          Refresh::prepare(platform.services(), changes, patcher, {root, device, kMinKeep, {}});
      Refresh::commitStore(batch, patcher);
      patcher.commit(1000 + static_cast<std::uint64_t>(round), 1.0);
    };
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      // Dies of an alarm after a random number of microseconds, most of them within the patch.
      const auto delay =
          static_cast<useconds_t>((seed + static_cast<std::uint64_t>(round) * 7919) % 6000 + 1);
      ::signal(SIGALRM, SIG_DFL);
      ::ualarm(delay, 0);
      patch();
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    const Loaded found = ScanStore::load(index, root, kMinKeep);
    if (found.lastEventId != 1000 + static_cast<std::uint64_t>(round)) {
      ASSERT_EQ(differences(index, before), "") << "round " << round;
      patch();
    }
  }
  const Loaded last = ScanStore::load(index, root, kMinKeep);
  TempFolder other;
  FolderScan fresh(platform.services(), {.root = root, .indexDirectory = other.path});
  EXPECT_EQ(last.result.root->totalLogical, fresh.run().result.root->totalLogical);
}

}  // namespace
}  // namespace quon::test
