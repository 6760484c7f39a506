// The patcher by itself; what batches make of it is compared with fresh scans in the tests of live updates.
#include <gtest/gtest.h>
#include <string>

#include "store/ScanPatcher.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// The index of r with a/b/c, ab, and a file in each of c and r.
class Patcher : public testing::Test {
 protected:
  static std::string save(const std::string& folder, const RootPath& root) {
    SampleTree tree(root.path());
    DirNode& a = tree.folder("a");
    DirNode& c = tree.folder("c", &tree.folder("b", &a));
    (void)tree.folder("ab");
    tree.file(c, {"large", 5000, 8192, 1});
    tree.file(tree.root(), {"small", 10, 512, 1});
    return tree.save(folder);
  }

  const TempFolder top;
  const RootPath root{"/r"};
  const std::string index = save(top.path, root);
};

TEST_F(Patcher, FindsFoldersByPathAndForgetsDeletedOnes) {
  ScanPatcher patcher(index, root);
  const std::int64_t a = patcher.dirId("/r/a").value();
  const std::int64_t c = patcher.dirId("/r/a/b/c").value();
  const std::int64_t ab = patcher.dirId("/r/ab").value();
  const std::int64_t topId = patcher.dirId("/r").value();
  EXPECT_EQ(patcher.path(c), "/r/a/b/c");
  EXPECT_EQ(patcher.path(topId), "/r");
  for (const char* absent : {"/r/a/missing/c", "/elsewhere", "/rb", "/"}) EXPECT_FALSE(patcher.dirId(absent));
  EXPECT_EQ(patcher.dirIdsUnder(a).size(), 3U);
  patcher.deleteSubtree(a, "/r/a");
  for (const char* deleted : {"/r/a", "/r/a/b", "/r/a/b/c"}) EXPECT_FALSE(patcher.dirId(deleted));
  EXPECT_FALSE(patcher.path(c));
  EXPECT_EQ(patcher.dirId("/r/ab"), ab);
  EXPECT_EQ(patcher.childNames(topId), std::vector<std::string>{"ab"});
}

TEST_F(Patcher, ReadsTheRootOfTheFileSystemAsWell) {
  const RootPath slash("/");
  ScanPatcher patcher(save(top.folder("slash"), slash), slash);
  EXPECT_EQ(patcher.path(patcher.dirId("/").value()), "/");
  EXPECT_EQ(patcher.path(patcher.dirId("/a/b").value()), "/a/b");
  EXPECT_EQ(patcher.topFiles(9, 10),
            (std::vector<TopFile>{{"/a/b/c/large", 5000, 8192, 1}, {"/small", 10, 512, 1}}));
}

TEST_F(Patcher, WithoutCommitEveryRowStaysAsItWas) {
  const std::string before = readBytes(index);
  {
    ScanPatcher patcher(index, root);
    patcher.replaceFiles(*patcher.dirId("/r"), {}, 7, true);
    patcher.deleteSubtree(*patcher.dirId("/r/a"), "/r/a");
    patcher.updateTopFiles({});
  }
  EXPECT_EQ(readBytes(index), before);
}

TEST_F(Patcher, CommitsWhatTheLoaderReads) {
  {
    ScanPatcher patcher(index, root);
    patcher.replaceFiles(*patcher.dirId("/r"), {}, -5, true);
    patcher.updateTopFiles({{"/x/\xff", 9, 8, -7}});
    patcher.commit(123456789012345, 1700000000.125);
  }
  const Loaded loaded = ScanStore::load(index, root);
  EXPECT_EQ(loaded.lastEventId, 123456789012345U);
  EXPECT_EQ(loaded.scannedAt, 1700000000.125);
  EXPECT_EQ(loaded.result.hardlinksDeduped, 0U);
  EXPECT_EQ(loaded.result.topFiles, (std::vector<TopFile>{{"/x/\xff", 9, 8, -7}}));
  EXPECT_EQ(loaded.result.root->totalFiles, 1U);
  EXPECT_EQ(loaded.result.root->mtime, -5);
  EXPECT_TRUE(loaded.result.root->error);
}

/// An index whose folders go in circles, or lead out of the root, ends a patch instead of keeping it busy.
TEST_F(Patcher, RefusesFoldersThatGoInCirclesOrLeadElsewhere) {
  for (const char* script :
       {"UPDATE dirs SET parent = id WHERE name = 'b'", "UPDATE dirs SET name = '..' WHERE name = 'b'"}) {
    const std::string before = readBytes(index);
    const std::int64_t c = ScanPatcher(index, root).dirId("/r/a/b/c").value();
    const std::int64_t b = ScanPatcher(index, root).dirId("/r/a/b").value();
    RawIndex(index).exec(script);
    ScanPatcher patcher(index, root);
    EXPECT_THROW((void)patcher.path(c), StoreError) << script;
    EXPECT_THROW((void)patcher.topFiles(9, 1000), StoreError) << script;
    EXPECT_EQ(patcher.dirIdsUnder(b).size(), 2U) << script;
    writeBytes(index, before);
  }
}

}  // namespace
}  // namespace quon::test
