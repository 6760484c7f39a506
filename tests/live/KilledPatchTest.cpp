// A program that is killed while it patches an index.
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "ScannedTree.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/Seed.h"
#include "support/SqliteHooks.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

class KilledPatch : public ScannedTree {
 protected:
  /// Patches in a child that is killed before its `last`-th change to the index or its journal; false when it
  /// made fewer, and so ended by itself.
  bool patchIsKilled(const std::string& index, const Refresh::Changes& changes, std::uint64_t eventId,
                     int last) {
    const pid_t child = ::fork();
    if (child == 0) {
      int made = 0;
      const SqliteHooks hooks([&](SqliteHooks::Access access) {
        if (access == SqliteHooks::Access::change && ++made == last) ::raise(SIGKILL);
      });
      patch(platform, index, changes, eventId);
      ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : WEXITSTATUS(status) == 0);
    return WIFSIGNALED(status);
  }
};

/// Whatever was written last, the index is afterwards that of before the batch, or of after it.
TEST_F(KilledPatch, LeavesAWholeIndexAtEveryMoment) {
  TreeEditor editor(root, randomSeed());
  editor.populate(150);
  const std::string index = scan("patched");
  int kills = 0;
  int rolledBack = 0;
  for (std::uint64_t batch = 1; batch <= 3; ++batch) {
    for (int edit = 0; edit < 6; ++edit) editor.edit();
    const Refresh::Changes changes = Refresh::coalesce(editor.takeEvents(), rootPath, {});
    const std::string before = work.at("before.sqlite");
    writeBytes(before, readBytes(index));
    for (int last = 1; patchIsKilled(index, changes, batch, last); ++last) {
      ++kills;
      if (std::filesystem::exists(index + "-journal")) ++rolledBack;
      ASSERT_NE(load(index).lastEventId, batch) << "batch " << batch << ", change " << last;
      ASSERT_EQ(differences(index, before), "") << "batch " << batch << ", change " << last;
    }
    ASSERT_EQ(load(index).lastEventId, batch);
    // Which name of a file with several is counted may differ.
    const Loaded fresh = load(scan("fresh"));
    ASSERT_EQ(load(index).result.root->totalLogical, fresh.result.root->totalLogical);
    ASSERT_EQ(load(index).result.root->totalFiles, fresh.result.root->totalFiles);
  }
  RecordProperty("kills", kills);
  EXPECT_GT(kills, 30);
  EXPECT_GT(rolledBack, kills / 2);
}

}  // namespace
}  // namespace quon::test
