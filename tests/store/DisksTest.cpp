// Disks that are mounted in turn at one place. Often the second gets the device number of the first, and its
// times are older: nothing but the disk's own identity distinguishes the two.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <ostream>
#include <string>
#include <utility>

#include "platform/Files.h"
#include "store/FolderScan.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "support/ChildProcess.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/Shell.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using Status = IndexEntry::Status;

/// Commands with $1 for a folder of their own and $2 for the place.
struct Pair {
  std::string name;
  std::string make = {};
  std::string mountFirst;
  std::string replaceByAnother;
  std::string bringBack;
};

Pair pairOfImages(const std::string& name, const std::string& make) {
  const auto mount = [](const std::string& image) { return "mount -o loop $1/" + image + " $2"; };
  return {.name = name,
          .make = "truncate -s 400M $1/one $1/two; for image in $1/one $1/two; do " + make + " $image; done",
          .mountFirst = mount("one"),
          .replaceByAnother = "umount $2; " + mount("two"),
          .bringBack = "umount $2; " + mount("one")};
}

Pair pairOfSubvolumes(const std::string& name, const std::string& makeOther) {
  return {.name = name,
          .make =
              "truncate -s 400M $1/disk; mkfs.btrfs -q $1/disk; mount -o loop $1/disk $2; "
              "btrfs subvolume create $2/home; " +
              makeOther + " $2/other; umount $2",
          .mountFirst = "mount -o loop,subvol=home $1/disk $2",
          .replaceByAnother = "umount $2; mount -o loop,subvol=other $1/disk $2",
          .bringBack = "umount $2; mount -o loop,subvol=home $1/disk $2"};
}

/// Only what is in memory can be covered and come back.
const Pair kPairInMemory{.name = "Tmpfs",
                         .mountFirst = "mount -t tmpfs tmpfs $2",
                         .replaceByAnother = "mount -t tmpfs tmpfs $2",
                         .bringBack = "umount $2"};

// NOLINTNEXTLINE(readability-identifier-naming): GoogleTest calls it by this name
void PrintTo(const Pair& pair, std::ostream* out) {
  *out << pair.name;
}

class Disks : public testing::TestWithParam<Pair> {
 protected:
  bool does(const std::string& commands) { return shell(commands, {temp.folder("work"), place}); }

  std::string scan() const {
    const auto outcome = FolderScan(linuxPlatform(), {.root = root, .indexDirectory = index}).run();
    EXPECT_EQ(outcome.notSaved, "");
    return outcome.index;
  }
  [[nodiscard]] std::string indexNow() const { return IndexCatalog::indexFor(linuxPlatform(), index, root); }
  [[nodiscard]] std::uint64_t sizeInIndex() const {
    return ScanStore::load(indexNow(), root).result.root->totalLogical;
  }
  /// Status by time of the scan.
  [[nodiscard]] std::map<double, Status> listed() const {
    std::map<double, Status> found;
    for (const IndexEntry& entry : IndexCatalog::list(linuxPlatform(), index)) {
      EXPECT_EQ(entry.root, place);
      found.emplace(entry.scannedAt, entry.status);
    }
    return found;
  }

  const TempFolder temp;
  const std::string index = temp.folder("index");
  const std::string place = temp.folder("place");
  const RootPath root{place};
};

TEST_P(Disks, InTurnAtOnePlaceHaveAnIndexEach) {
  inPrivateMounts([&] {
    const Pair& pair = GetParam();
    if (!does(pair.make + "\n" + pair.mountFirst)) GTEST_SKIP() << "cannot make and mount " << pair.name;
    temp.file("place/photos/new", 1000);
    const double first = ScanStore::summary(scan()).scannedAt;

    ASSERT_TRUE(does(pair.replaceByAnother));
    temp.file("place/photos/new", 30);
    ASSERT_TRUE(does("touch -d 1999-01-01 $2/photos/new $2/photos $2"));
    EXPECT_FALSE(fs::exists(indexNow())) << "what was scanned is on the disk that is absent";
    EXPECT_EQ(listed(), (std::map{std::pair(first, Status::offline)}));
    const double second = ScanStore::summary(scan()).scannedAt;
    EXPECT_EQ(sizeInIndex(), 30U);
    EXPECT_EQ(listed(), (std::map{std::pair(first, Status::offline), std::pair(second, Status::live)}));
    EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), index).indexes, 0U);

    ASSERT_TRUE(does(pair.bringBack));
    const auto nearest = IndexCatalog::nearest(linuxPlatform(), index, place + "/photos");
    ASSERT_TRUE(nearest);
    EXPECT_EQ(nearest->scannedAt, first);
    EXPECT_EQ(sizeInIndex(), 1000U);
    EXPECT_EQ(listed(), (std::map{std::pair(first, Status::live), std::pair(second, Status::offline)}));
    ASSERT_TRUE(does("umount $2"));
  });
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, Disks,
    testing::Values(pairOfImages("Ext4", "mkfs.ext4 -q"), pairOfImages("Xfs", "mkfs.xfs -q"),
                    pairOfImages("Btrfs", "mkfs.btrfs -q"), pairOfImages("Vfat", "mkfs.vfat"),
                    pairOfSubvolumes("SubvolumesOfBtrfs", "btrfs subvolume create"),
                    pairOfSubvolumes("ASubvolumeAndItsSnapshot", "btrfs subvolume snapshot $2/home"),
                    kPairInMemory),
    [](const auto& instance) { return instance.param.name; });

class OneDisk : public Disks {};

/// Its next boot numbers them anew, and none of what was in memory comes back.
TEST_F(OneDisk, OfAnEarlierBootIsGoneUnlessItsIdentityLasts) {
  inPrivateMounts([&] {
    mountTmpfs(place);
    const std::string saved = scan();
    const std::string present = RawIndex(saved).value("SELECT value FROM meta WHERE key = 'volumeLasts'");
    ASSERT_NE(present, "always");
    RawIndex(saved).exec("UPDATE meta SET value = 'an earlier boot' WHERE key = 'volumeLasts'");
    EXPECT_EQ(listed().begin()->second, Status::orphaned);
    (void)scan();
    EXPECT_EQ(listed().size(), 1U) << "the index of a disk that cannot come back was kept";
    ASSERT_TRUE(does("umount $2"));
  });
}

/// Those in user space have no identity but what they were mounted from. Whatever else is mounted meanwhile,
/// one of many other file systems takes the number that it had.
TEST_F(OneDisk, IsTheSameUnderAnotherNumber) {
  inPrivateMounts([&] {
    if (!does("truncate -s 50M $1/disk; mkfs.ntfs -qfF $1/disk; ntfs-3g $1/disk $2"))
      GTEST_SKIP() << "cannot mount NTFS in user space";
    const std::string saved = scan();
    const std::uint64_t before = ScanStore::summary(saved).rootDev;
    for (std::uint64_t now = before, tries = 0; now == before; ++tries) {
      ASSERT_LT(tries, 100U);
      ASSERT_TRUE(does("umount $2; mount -t tmpfs tmpfs $(mktemp -d -p $1); ntfs-3g $1/disk $2"));
      std::error_code none;
      now = linuxPlatform().files.facts(place, none).value().device;
    }
    EXPECT_EQ(listed().begin()->second, Status::live);
    ASSERT_TRUE(does("umount $2"));
  });
}

/// A folder of indexes on a medium that cannot be written.
TEST_F(OneDisk, IsReadUnderTheNameOfOneThatWaitsWhereNothingCanBeRenamed) {
  inPrivateMounts([&] {
    mountTmpfs(index);
    mountTmpfs(place);
    temp.file("place/file", 1000);
    (void)scan();
    mountTmpfs(place);
    (void)scan();
    ASSERT_TRUE(shell("umount $1; mount -o remount,ro $2", {place, index}));
    EXPECT_EQ(sizeInIndex(), 1000U);
    ASSERT_TRUE(shell("mount -o remount,rw $1", {index}));
    (void)scan();
    EXPECT_EQ(listed().size(), 2U) << "the index that waited is left beside the new one of the same disk";
    ASSERT_TRUE(shell("umount $1 $2", {place, index}));
  });
}

}  // namespace
}  // namespace quon::test
