// Reconciling on each kind of file system that can be mounted. They differ in what they keep of times, in
// when they allocate blocks, in the order of listings, and in what their inode numbers are worth.
#include <gtest/gtest.h>
#include <iostream>
#include <ostream>
#include <string>

#include "ScannedTree.h"
#include "live/Reconciliation.h"
#include "support/ChildProcess.h"
#include "support/IndexComparison.h"
#include "support/Seed.h"
#include "support/Shell.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

constexpr int kFirstEdits = 80;
constexpr int kRounds = 8;
constexpr int kEditsARound = 20;

/// Commands with $1 for a folder of their own and $2 for where to mount.
struct FileSystem {
  std::string name;
  std::string make;
  std::string mount;
};

FileSystem onAnImage(const std::string& name, const std::string& make, const std::string& mount) {
  return {name, "truncate -s 400M $1/image; " + make + " $1/image", mount + " $1/image $2"};
}

/// On one loop device throughout: the number of the device is all that identifies it.
FileSystem inUserSpace(const std::string& name, const std::string& make, const std::string& mount) {
  return {name, "truncate -s 400M $1/image; " + make + " $1/image; losetup -f --show $1/image > $1/loop",
          mount + " $(cat $1/loop) $2"};
}

/// What was there when it is mounted for the second time is below it from then on, and copied up by edits.
FileSystem overlay() {
  return {"Overlay", "mount -t tmpfs tmpfs $1; mkdir $1/lower $1/upper $1/work",
          "if [ -n \"$(ls -A $1/upper)\" ] && rmdir $1/lower 2>/dev/null; then mv $1/upper $1/lower; mkdir "
          "$1/upper; fi;"
          "mount -t overlay -o lowerdir=$1/lower,upperdir=$1/upper,workdir=$1/work overlay $2"};
}

// NOLINTNEXTLINE(readability-identifier-naming): GoogleTest calls it by this name
void PrintTo(const FileSystem& kind, std::ostream* out) {
  *out << kind.name;
}

class FileSystemsBelow : public ScannedTree {
 protected:
  bool does(const std::string& commands) { return shell(commands, {work.folder("disk"), root}); }

  Refresh::Changes changesOf(const std::string& index, const Loaded& loaded) {
    return Refresh::Reconciliation(platform, indexed(index), 2).changes(loaded);
  }

  void expectExactlyReconciled(const std::string& index, const std::string& edits) {
    Loaded loaded = load(index);
    const Refresh::Changes changes = changesOf(index, loaded);
    const Refresh::Applied applied =
        Refresh::applyChanges(platform, changes, 7, loaded, {.index = {.root = rootPath, .indexURL = index}});
    ASSERT_EQ(differences(*applied.result.root, *load(index).result.root), "") << edits;
    ASSERT_EQ(differences(index, scan("fresh")), "") << edits;
    const Refresh::Changes again = changesOf(index, load(index));
    ASSERT_TRUE(again.empty()) << again.begin()->first << " was taken for changed; " << edits;
  }
};

class FileSystems : public FileSystemsBelow, public testing::WithParamInterface<FileSystem> {
 protected:
  /// Afterwards all blocks are allocated, some devices and inodes have other numbers, and listings another
  /// order.
  void mountAgain() {
    if (GetParam().mount.empty()) return;
    ASSERT_TRUE(does("umount $2; " + GetParam().mount));
  }

  void expectExactReconciling(std::uint64_t seed) {
    TreeEditor editor(root, seed);
    editor.populate(kFirstEdits);
    mountAgain();
    const std::string index = scan("patched");
    for (int round = 0; round < kRounds && !HasFatalFailure(); ++round) {
      const std::size_t before = editor.log().size();
      for (int count = 0; count < kEditsARound; ++count) editor.edit();
      (void)editor.takeEvents();
      ASSERT_TRUE(does("find $2 -type d -print0 | head -z -n 3 | xargs -0 touch -d 2001-09-09"));
      mountAgain();
      std::string edits = "round " + std::to_string(round) + ":\n";
      for (std::size_t at = before; at < editor.log().size(); ++at) edits += editor.log()[at] + "\n";
      expectExactlyReconciled(index, edits);
    }
    std::cout << editor.log().size() << " edits\n";
  }
};

TEST_P(FileSystems, AreReconciledExactly) {
  const std::uint64_t seed = randomSeed();
  inPrivateMounts([&] {
    if (!does(GetParam().make + "\n" + GetParam().mount)) GTEST_SKIP() << "cannot make and mount it";
    expectExactReconciling(seed);
    ASSERT_TRUE(
        does("umount $2; if mountpoint -q $1; then umount $1; fi; "
             "if [ -e $1/loop ]; then losetup -d $(cat $1/loop); fi"));
  });
}

/// What is below a mount point is of another file system, or the folder's own, from one launch to the next.
TEST_F(FileSystemsBelow, ComeAndGo) {
  inPrivateMounts([&] {
    tree.file("a/own", 5000);
    tree.file("a/in/deep", 70);
    ASSERT_TRUE(does("touch -d 2020-05-05 $2/a"));
    const std::string index = scan("patched");
    for (const char* const commands :
         {"mount -t tmpfs tmpfs $2/a", "umount $2/a; mount -t tmpfs tmpfs $2/a/in", "umount $2/a/in",
          "mkdir $2/b; mount --bind $2/a $2/b; mount -t tmpfs tmpfs $2/b/in", "umount $2/b/in $2/b"}) {
      ASSERT_TRUE(does(commands));
      expectExactlyReconciled(index, commands);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FileSystems,
    testing::Values(onAnImage("Ext4", "mkfs.ext4 -q", "mount -o loop"),
                    onAnImage("Xfs", "mkfs.xfs -q", "mount -o loop"),
                    onAnImage("Btrfs", "mkfs.btrfs -q", "mount -o loop"),
                    onAnImage("Vfat", "mkfs.vfat", "mount -o loop"),
                    onAnImage("Exfat", "mkfs.exfat", "mount -o loop"),
                    inUserSpace("ExfatInUserSpace", "mkfs.exfat", "mount.exfat-fuse"),
                    inUserSpace("NtfsInUserSpace", "mkfs.ntfs -qfF", "ntfs-3g"),
                    FileSystem{.name = "Tmpfs", .make = "mount -t tmpfs tmpfs $2", .mount = ""}, overlay()),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace quon::test
