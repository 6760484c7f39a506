// Loading an index that another connection is changing: at whatever moment, what loads is one state of it.
#include <atomic>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <thread>

#include "store/ScanStore.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/SqliteHooks.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

const RootPath kRoot("/sample");

/// Two folders of two files each.
std::string saveSmall(const std::string& folder) {
  SampleTree tree(kRoot.path());
  for (const char* name : {"a", "b"}) {
    DirNode& node = tree.folder(name);
    tree.file(node, {"x", 1000, 0, 0});
    tree.file(node, {"y", 1000, 0, 0});
  }
  return tree.save(folder);
}

/// Every figure of the small index set to one number, in one transaction.
std::string settingAllTo(int value) {
  const std::string number = std::to_string(value);
  return "BEGIN IMMEDIATE; UPDATE dirs SET mtime = " + number + "; UPDATE files SET logical = 1000 + " +
         number + ", physical = " + number + ", mtime = " + number + "; UPDATE meta SET value = '" + number +
         "' WHERE key IN ('errorCount', 'elapsedMs'); COMMIT";
}

/// The one number that every figure of a loaded index is; fails the test when they differ.
std::uint64_t oneValueOf(const Loaded& loaded) {
  const std::uint64_t value = loaded.result.errorCount;
  EXPECT_EQ(loaded.scanElapsedMs, static_cast<std::int64_t>(value));
  EXPECT_EQ(loaded.result.root->totalPhysical, value * 4);
  EXPECT_EQ(loaded.result.root->totalLogical, (value + 1000) * 4);
  EXPECT_EQ(loaded.result.root->mtime, static_cast<std::int64_t>(value));
  for (const RefPtr<DirNode>& child : loaded.result.root->subdirs) {
    EXPECT_EQ(child->directNewest, static_cast<std::int64_t>(value));
    EXPECT_EQ(child->keptFiles.size(), 2U);
    for (const FileEntry& kept : child->keptFiles) EXPECT_EQ(kept.physical, value);
  }
  return value;
}

/// From now on the connection tries again whenever a reader keeps it from committing, and sets `busy`.
void reportWhenBusy(RawIndex& index, std::atomic<bool>& busy) {
  sqlite3_busy_handler(
      index.raw(),
      [](void* flag, int) {
        static_cast<std::atomic<bool>*>(flag)->store(true);
        static_cast<std::atomic<bool>*>(flag)->notify_all();
        std::this_thread::yield();
        return 1;
      },
      &busy);
}

TEST(ConcurrentLoad, SeesOneStateWheneverAWriterCommits) {
  const TempFolder top;
  const std::string url = saveSmall(top.path);
  RawIndex(url).dropTotals();
  RawIndex(url).exec(settingAllTo(0));
  RawIndex index(url);
  int value = 0;
  int locks = 0;
  // With each load the writer comes one lock later, until it comes after the last.
  for (int moment = 1; moment == 1 || locks >= moment - 1; ++moment) {
    ASSERT_LT(moment, 1000);
    std::atomic<bool> commits{false};
    reportWhenBusy(index, commits);
    std::jthread writer;
    locks = 0;
    std::uint64_t found = 0;
    {
      const SqliteHooks hooks([&](SqliteHooks::Access access) {
        if (access != SqliteHooks::Access::sharedLock || ++locks != moment) return;
        ++value;
        writer = std::jthread([&] {
          index.exec(settingAllTo(value));
          commits = true;
          commits.notify_all();
        });
        commits.wait(false);  // it has committed, or waits with its commit for a reader to end
      });
      found = oneValueOf(ScanStore::load(url, kRoot, 1000));
    }
    EXPECT_LE(found, static_cast<std::uint64_t>(value)) << "writer before lock " << moment;
    EXPECT_GE(found + 1, static_cast<std::uint64_t>(value)) << "writer before lock " << moment;
  }
  EXPECT_GE(value, 4) << "two connections take two locks each at least";
}

TEST(ConcurrentLoad, WaitsForAWriterThatWaitsForAnEarlierReader) {
  const TempFolder top;
  const std::string url = saveSmall(top.path);
  RawIndex(url).dropTotals();
  RawIndex(url).exec(settingAllTo(1));
  RawIndex reader(url);
  reader.exec("BEGIN");
  ASSERT_EQ(reader.value("SELECT COUNT(*) FROM dirs"), "3");
  std::atomic<bool> pending{false};
  const std::jthread writer([&] {
    RawIndex index(url);
    // Called when the reader keeps it from committing: from then on no new reader is let in.
    reportWhenBusy(index, pending);
    index.exec(settingAllTo(2));
  });
  pending.wait(false);
  EXPECT_THROW((void)RawIndex(url).value("SELECT COUNT(*) FROM dirs"), std::runtime_error)
      << "readers are still let in";
  const std::jthread leaving([&] { reader.exec("COMMIT"); });
  EXPECT_EQ(oneValueOf(ScanStore::load(url, kRoot, 1000)), 2U);
}

}  // namespace
}  // namespace quon::test
