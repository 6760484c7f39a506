// What is shown of a folder when another disk is mounted there, the same disk under another number, or an
// earlier state of the same disk.

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/stat.h>

#include "QuonProcess.h"
#include "support/ChildProcess.h"
#include "support/RawIndex.h"
#include "support/Shell.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kMark = "123454321";

class MountedTree : public testing::Test {
 protected:
  bool does(const std::string& commands) { return shell(commands, {images, quon.tree}); }

  [[nodiscard]] std::uint64_t bytesOnDisk() const {
    std::uint64_t sum = 0;
    for (const auto& entry : fs::recursive_directory_iterator(quon.tree)) {
      if (entry.is_regular_file()) sum += entry.file_size();
    }
    return sum;
  }
  void expectTrue() { EXPECT_EQ(quon.document({"ls", quon.tree}).at("logical"), bytesOnDisk()); }
  [[nodiscard]] std::map<std::string, std::string> statusByFile() const {
    std::map<std::string, std::string> found;
    const Json list = quon.document({"indexes"});
    for (const Json& row : list.at("rows")) found[row.at("url")] = row.at("status");
    return found;
  }
  /// Something in an index that a catch-up keeps and a scan does not.
  static void mark(const std::string& index) {
    RawIndex(index).exec(std::string("UPDATE meta SET value = '") + kMark + "' WHERE key = 'elapsedMs'");
  }
  static bool isMarked(const std::string& index) {
    return RawIndex(index).value("SELECT value FROM meta WHERE key = 'elapsedMs'") == kMark;
  }

  Quon quon;
  const std::string images = quon.folder.folder("images");
};

TEST_F(MountedTree, OfTwoDisksIsShownAsTheOneThatIsThere) {
  inPrivateMounts([&] {
    if (!does("truncate -s 100M $1/one $1/two; mkfs.ext4 -q $1/one; mkfs.ext4 -q $1/two; "
              "mount -o loop $1/one $2")) {
      GTEST_SKIP() << "cannot mount an image";
    }
    quon.folder.file("tree/a/b/film", 5000);
    expectTrue();
    const std::string first = quon.onlyIndex();
    mark(first);

    ASSERT_TRUE(does("umount $2; mount -o loop $1/two $2"));
    quon.folder.file("tree/a/b/film", 70);
    ASSERT_TRUE(does("touch -d 1999-01-01 $2 $2/a $2/a/b $2/a/b/film"));
    EXPECT_EQ(quon.run({"ls", quon.tree}).err, "") << "that the disk is new is no fault";
    expectTrue();
    auto status = statusByFile();
    ASSERT_EQ(status.size(), 2U);
    EXPECT_EQ(status[first], "live");
    EXPECT_FALSE(isMarked(first));
    for (const auto& [file, is] : status) EXPECT_EQ(is, isMarked(file) ? "offline" : "live");

    // Under another number, as after a restart.
    ASSERT_TRUE(
        does("truncate -s 1M $1/spare; umount $2; losetup -f $1/spare; mount -o loop $1/one $2; "
             "losetup -j $1/spare | cut -d: -f1 | xargs losetup -d"));
    quon.folder.file("tree/a/later", 300);
    expectTrue();
    EXPECT_TRUE(isMarked(first)) << "scanned, though nothing but the number is another";
    struct stat facts {};
    ASSERT_EQ(::stat(quon.tree.c_str(), &facts), 0);
    EXPECT_EQ(RawIndex(first).value("SELECT value FROM meta WHERE key = 'rootDev'"),
              std::to_string(facts.st_dev));
    status = statusByFile();
    EXPECT_EQ(status.size(), 2U);
    for (const auto& [file, is] : status) EXPECT_EQ(is, file == first ? "live" : "offline");
    ASSERT_TRUE(does("umount $2"));
  });
}

/// Each time folders are other than before, under names and times that are not.
TEST_F(MountedTree, IsShownAsItIsWhateverItsTimesSay) {
  inPrivateMounts([&] {
    if (!does("truncate -s 400M $1/disk; mkfs.xfs -q $1/disk; mount -o loop $1/disk $2"))
      GTEST_SKIP() << "cannot mount XFS";
    quon.folder.file("tree/a/in/film", 5000);
    quon.folder.file("tree/b/in/film", 70);
    const auto expectAfter = [&](const std::string& commands) {
      const std::uint64_t before = bytesOnDisk();
      ASSERT_TRUE(does(commands)) << commands;
      EXPECT_NE(bytesOnDisk(), before) << "nothing was changed by " << commands;
      expectTrue();
      EXPECT_TRUE(isMarked(quon.onlyIndex())) << "scanned after " << commands;
    };
    ASSERT_TRUE(does("touch -d 2020-05-05 $2/a/in $2/b/in $2/a $2/b $2"));
    expectTrue();
    mark(quon.onlyIndex());
    expectAfter(
        "mkdir $2/new; head -c 11 /dev/zero > $2/new/film; mv $2/a/in $2/old; mv $2/new $2/a/in; "
        "rm -r $2/old; touch -d 2020-05-05 $2/a/in $2/a $2");

    ASSERT_EQ(::renameat2(AT_FDCWD, quon.folder.at("tree/a").c_str(), AT_FDCWD,
                          quon.folder.at("tree/b").c_str(), RENAME_EXCHANGE),
              0);
    ASSERT_TRUE(does("touch -d 2020-05-05 $2"));
    EXPECT_EQ(quon.document({"ls", quon.folder.at("tree/a")}).at("logical"), 70);
    EXPECT_EQ(quon.document({"ls", quon.folder.at("tree/b")}).at("logical"), 11);

    ASSERT_TRUE(does("umount $2; cp --sparse=always $1/disk $1/copy; mount -o loop $1/disk $2"));
    expectAfter("head -c 900 /dev/zero > $2/a/later; mkdir $2/b/more; echo > $2/b/more/file");
    expectAfter("umount $2; mv $1/copy $1/disk; mount -o loop $1/disk $2");
    ASSERT_TRUE(does("umount $2"));
  });
}

}  // namespace
}  // namespace quon::test
