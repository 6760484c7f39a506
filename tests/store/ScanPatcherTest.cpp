// The patcher by itself; what batches make of it is compared with fresh scans in the tests of live updates.
#include <gtest/gtest.h>
#include <string>

#include "store/ScanPatcher.h"
#include "store/StoreError.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// The index of r with a/b/c, and a file in each of c and r.
class Patcher : public testing::Test {
 protected:
  static std::string save(const std::string& folder, const RootPath& root) {
    SampleTree tree(root.path());
    DirNode& a = tree.folder("a");
    DirNode& c = tree.folder("c", &tree.folder("b", &a));
    tree.file(c, {"large", 5000, 8192, 1});
    tree.file(tree.root(), {"small", 10, 512, 1});
    return tree.save(folder);
  }

  const TempFolder top;
  const RootPath root{"/r"};
  const std::string index = save(top.path, root);
};

TEST_F(Patcher, ReadsTheRootOfTheFileSystemAsWell) {
  const RootPath slash("/");
  ScanPatcher patcher(save(top.folder("slash"), slash), slash);
  EXPECT_EQ(patcher.path(patcher.dirId("/").value()), "/");
  EXPECT_EQ(patcher.path(patcher.dirId("/a/b").value()), "/a/b");
  EXPECT_EQ(patcher.topFiles(9, 10),
            (std::vector<TopFile>{{"/a/b/c/large", 5000, 8192, 1}, {"/small", 10, 512, 1}}));
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
