// The system's own trash, used for real: each test in a process whose home folder is on a file system of its own.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "linux_desktop/LinuxTrash.h"
#include "support/ChildProcess.h"
#include "support/Shell.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class SystemTrash : public testing::Test {
 protected:
  /// With ext4 file systems of 8 MiB at the home folder and at "disk", both full of nothing.
  void onDisks(const std::function<void()>& body) {
    inPrivateMounts([&] {
      const std::string make =
          "for name in home disk; do truncate -s 8M $1/$name.image; mkfs.ext4 -q -m 0 $1/$name.image; "
          "mount -o loop $1/$name.image $1/$name; done";
      if (!shell(make, {top.path})) GTEST_SKIP() << "cannot mount file systems";
      ASSERT_EQ(::setenv("HOME", home.c_str(), 1), 0);
      ASSERT_EQ(::setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1), 0);
      fs::create_directory(home + "/data");
      body();
      ASSERT_TRUE(shell("umount $1/home $1/disk", {top.path}));
    });
  }
  static std::string write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << content;
    return path;
  }
  static std::string reasonOf(LinuxTrash& trash, const std::string& path, const ExpectedItem& expected = {}) {
    try {
      (void)trash.moveToTrash(path, expected);
    } catch (const TrashFailure& failure) {
      return failure.what();
    }
    return "moved";
  }
  /// Names of what the trashes contain, with their records.
  static std::size_t itemsIn(const LinuxTrash& trash) {
    std::size_t count = 0;
    for (const std::string& folder : trash.folders()) {
      count += trash.list(folder).items.size();
      for (const auto& record : fs::directory_iterator(folder + "/info")) {
        EXPECT_TRUE(fs::exists(fs::symlink_status(folder + "/files/" + record.path().stem().string())))
            << "a record of nothing: " << record.path();
      }
    }
    return count;
  }

  const TempFolder top;
  const std::string home = top.folder("home");
  const std::string disk = top.folder("disk");
};

TEST_F(SystemTrash, TakesFilesFoldersAndLinksOfAnyNameAndListsThem) {
  onDisks([&] {
    LinuxTrash trash(home + "/data", ::getuid());
    EXPECT_THAT(trash.folders(), IsEmpty());
    const std::string odd = home + "/50%\xff\n[x]=\xE2\x80\xAE;.txt";
    write(odd, "odd");
    write(home + "/folder/inner", "inner");
    write(home + "/target/kept", "kept");
    fs::create_symlink(home + "/target", home + "/link");
    for (const std::string& path : {odd, home + "/folder", home + "/link"}) {
      const TrashedItem item = trash.moveToTrash(path, trash.inspect(path));
      EXPECT_EQ(item.originalPath, path);
      EXPECT_GT(item.trashedAt, 1'700'000'000);
      EXPECT_FALSE(fs::exists(fs::symlink_status(path)));
    }
    EXPECT_EQ(contentOf(home + "/target/kept"), "kept") << "the target went with its link";
    // A clash in the trash.
    write(home + "/folder/inner", "second");
    const TrashedItem second = trash.moveToTrash(home + "/folder", {});
    EXPECT_EQ(contentOf(second.path + "/inner"), "second");
    EXPECT_EQ(contentOf(home + "/data/Trash/files/folder/inner"), "inner");
    ASSERT_THAT(trash.folders(), SizeIs(1));
    std::multiset<std::string> originals;
    for (const TrashedItem& item : trash.list(trash.folders().front()).items) originals.insert(item.originalPath);
    EXPECT_EQ(originals, (std::multiset<std::string>{odd, home + "/folder", home + "/folder", home + "/link"}));
  });
}

TEST_F(SystemTrash, OfAnotherFileSystemIsAtItsTop) {
  onDisks([&] {
    LinuxTrash trash(home + "/data", ::getuid());
    const std::string user = std::to_string(::getuid());
    write(disk + "/deep/film", "film");
    write(disk + "/second", "second");
    const TrashedItem own = trash.moveToTrash(disk + "/deep/film", {});
    EXPECT_EQ(own.path, disk + "/.Trash-" + user + "/files/film");
    // Shared by all users, with the sticky bit.
    ASSERT_TRUE(shell("rm -r $1/.Trash-*; mkdir $1/.Trash; chmod 1777 $1/.Trash", {disk}));
    const TrashedItem shared = trash.moveToTrash(disk + "/second", {});
    EXPECT_EQ(shared.path, disk + "/.Trash/" + user + "/files/second");
    const auto folders = trash.folders();
    ASSERT_THAT(folders, SizeIs(1));
    EXPECT_EQ(trash.list(folders.front()).items.front().originalPath, disk + "/second");

    write(disk + "/third", "third");
    ASSERT_TRUE(shell("mount -o remount,ro $1", {disk}));
    EXPECT_NE(reasonOf(trash, disk + "/third"), "moved");
    EXPECT_EQ(contentOf(disk + "/third"), "third");
    ASSERT_TRUE(shell("mount -o remount,rw $1; rm -r $1/.Trash; touch $1/.Trash $1/.Trash-$2", {disk, user}));
    EXPECT_NE(reasonOf(trash, disk + "/third"), "moved") << "where no trash can be made";
    EXPECT_EQ(contentOf(disk + "/third"), "third");
  });
}

TEST_F(SystemTrash, MovesNothingButTheExpectedItem) {
  onDisks([&] {
    LinuxTrash trash(home + "/data", ::getuid());
    const std::string film = write(home + "/film", "film");
    const ExpectedItem seen = trash.inspect(film);
    const auto refuses = [&](const char* change) {
      EXPECT_EQ(reasonOf(trash, film, seen), "it changed since it was shown") << change;
      EXPECT_TRUE(fs::exists(film)) << change;
    };
    write(film, "longer than it was");
    refuses("size");
    ASSERT_TRUE(shell("printf film > $1; touch -d 2001-01-01 $1", {film}));
    refuses("time");
    ASSERT_TRUE(shell("rm $1; mkdir $1", {film}));
    refuses("type");
    ASSERT_TRUE(shell("rmdir $1; cp $2 $1", {film, write(home + "/other", "film")}));
    fs::last_write_time(film, fs::file_time_type(std::chrono::seconds(0)));
    ExpectedItem without = trash.inspect(film);
    without.fileID += 1;
    EXPECT_EQ(reasonOf(trash, film, without), "it changed since it was shown") << "inode";
    fs::remove(film);
    EXPECT_EQ(reasonOf(trash, film), "it is no longer there");
    EXPECT_EQ(itemsIn(trash), 0U);
  });
}

TEST_F(SystemTrash, PutsBackWhatWasExchangedBetweenCheckAndMove) {
  onDisks([&] {
    write(home + "/a/film", "shown");
    write(home + "/other/film", "another");
    std::function<void()> exchange;
    LinuxTrash trash(home + "/data", ::getuid(), [&exchange](const std::string& path) {
      exchange();
      LinuxTrash::moveByGio(path);
    });
    // Its folder becomes a link to another one.
    exchange = [&] { ASSERT_TRUE(shell("mv $1/a $1/b; ln -s other $1/a", {home})); };
    EXPECT_EQ(reasonOf(trash, home + "/a/film", trash.inspect(home + "/a/film")), "it changed since it was shown");
    EXPECT_EQ(contentOf(home + "/b/film"), "shown");
    EXPECT_EQ(contentOf(home + "/other/film"), "another");
    // It is itself replaced.
    exchange = [&] { ASSERT_TRUE(shell("mv $1/b/film $1/kept; cp -p $1/other/film $1/b/film", {home})); };
    EXPECT_EQ(reasonOf(trash, home + "/b/film", trash.inspect(home + "/b/film")), "it changed since it was shown");
    EXPECT_EQ(contentOf(home + "/kept"), "shown");
    EXPECT_EQ(contentOf(home + "/b/film"), "another");
    EXPECT_EQ(itemsIn(trash), 0U);
    // Its folder becomes a link to another file system.
    write(disk + "/other/film", "of another disk");
    fs::create_directories(home + "/c");
    write(home + "/c/film", "shown");
    exchange = [&] { ASSERT_TRUE(shell("mv $1/c $1/d; ln -s $2/other $1/c", {home, disk})); };
    EXPECT_EQ(reasonOf(trash, home + "/c/film", trash.inspect(home + "/c/film")), "it changed since it was shown");
    EXPECT_EQ(contentOf(home + "/d/film"), "shown");
    EXPECT_EQ(contentOf(disk + "/other/film"), "of another disk");
    EXPECT_EQ(itemsIn(trash), 0U);
    fs::remove(home + "/c");
    // Nothing can be put back where something new is: it says where it is.
    exchange = [&] { ASSERT_TRUE(shell("mv $1/b/film $1/c; cp -p $1/other/film $1/b/film", {home})); };
    LinuxTrash blocked(home + "/data", ::getuid(), [&](const std::string& path) {
      exchange();
      LinuxTrash::moveByGio(path);
      write(path, "new");
    });
    EXPECT_THAT(reasonOf(blocked, home + "/b/film", blocked.inspect(home + "/b/film")),
                HasSubstr("it is at " + home + "/data/Trash/files/film"));
    EXPECT_EQ(contentOf(home + "/b/film"), "new");
  });
}

TEST_F(SystemTrash, OfAFullDiskTakesNothingThatItCannotRecord) {
  onDisks([&] {
    ASSERT_TRUE(shell("mount -t tmpfs -o size=256k tmpfs $1; mkdir $1/data", {home}));
    LinuxTrash trash(home + "/data", ::getuid());
    const std::string film = write(home + "/film", "film");
    (void)trash.moveToTrash(write(home + "/first", "x"), {});
    ASSERT_TRUE(shell("cat /dev/zero > $1/filler 2>/dev/null || true", {home}));
    EXPECT_THAT(reasonOf(trash, film), testing::ContainsRegex("[Nn]o space left on device"));
    EXPECT_EQ(contentOf(film), "film");
    EXPECT_EQ(itemsIn(trash), 1U);
    fs::remove(home + "/filler");
    EXPECT_EQ(reasonOf(trash, film), "moved");
    ASSERT_TRUE(shell("umount $1", {home}));
  });
}

TEST_F(SystemTrash, LosesNothingThatItHasNoRecordOf) {
  onDisks([&] {
    LinuxTrash trash(home + "/data", ::getuid());
    for (const char* kept : {"film.mp4", "film.2.mp4"}) write(home + "/data/Trash/files/" + kept, kept);
    fs::create_directories(home + "/data/Trash/info");
    const std::string film = write(home + "/film.mp4", "new");
    EXPECT_THAT(reasonOf(trash, film), HasSubstr("without a record of where it was"));
    write(home + "/data/Trash/info/film.mp4.trashinfo", "[Trash Info]\nPath=/x\n");
    EXPECT_THAT(reasonOf(trash, film), HasSubstr("files/film.2.mp4")) << "the second name";
    for (const char* kept : {"film.mp4", "film.2.mp4"}) {
      EXPECT_EQ(contentOf(home + "/data/Trash/files/" + kept), kept);
    }
    EXPECT_EQ(contentOf(film), "new");
    // A record that would be waited for.
    fs::remove(home + "/data/Trash/info/film.mp4.trashinfo");
    ASSERT_TRUE(shell("mkfifo $1/film.mp4.trashinfo", {home + "/data/Trash/info"}));
    EXPECT_EQ(trash.list(home + "/data/Trash").items.size(), 2U);
  });
}

TEST_F(SystemTrash, BehindALinkIsTheSameTrash) {
  onDisks([&] {
    fs::create_directories(home + "/elsewhere");
    fs::remove(home + "/data");
    fs::create_directory_symlink("elsewhere", home + "/data");
    LinuxTrash trash(home + "/data", ::getuid());
    const TrashedItem item = trash.moveToTrash(write(home + "/film", "film"), {});
    EXPECT_EQ(item.path, home + "/elsewhere/Trash/files/film");
    ASSERT_EQ(trash.folders(), std::vector{home + "/elsewhere/Trash"});
    EXPECT_EQ(trash.list(trash.folders().front()).items.front().originalPath, home + "/film");
  });
}

TEST_F(SystemTrash, IsNeverItselfMovedWhoeverOwnsIt) {
  onDisks([&] {
    LinuxTrash trash(home + "/data", 4711);
    for (const std::string& folder : {home + "/data/Trash", disk + "/.Trash-1", disk + "/.Trash/1"}) {
      write(folder + "/files/film", "film");
      fs::create_directories(folder + "/info");
      EXPECT_EQ(reasonOf(trash, folder + "/files/film"), "it is in the trash already");
      EXPECT_THAT(reasonOf(trash, folder), testing::AnyOf("it is the trash", "it is in the trash already"));
    }
    EXPECT_EQ(reasonOf(trash, home + "/data"), "it contains the trash");
    EXPECT_EQ(reasonOf(trash, disk + "/.Trash"), "it is the trash");
  });
}

TEST_F(SystemTrash, NeverTakesAMountedFileSystem) {
  onDisks([&] {
    LinuxTrash trash(home + "/data", ::getuid());
    write(disk + "/precious", "precious");
    fs::create_directories(home + "/a/mnt");
    bindMount(disk, home + "/a/mnt");
    EXPECT_EQ(reasonOf(trash, home + "/a/mnt"), "it is a mount point");
    EXPECT_EQ(reasonOf(trash, home + "/a"), "another file system is mounted in it, at " + home + "/a/mnt");
    EXPECT_TRUE(fs::exists(home + "/a/mnt/precious"));
    EXPECT_EQ(itemsIn(trash), 0U);
    ASSERT_TRUE(shell("umount $1/a/mnt", {home}));
    EXPECT_EQ(reasonOf(trash, home + "/a"), "moved");
  });
}

TEST_F(SystemTrash, WithoutPermissionSaysSo) {
  onDisks([&] {
    write(home + "/closed/film", "film");
    write(home + "/hidden/film", "film");
    ASSERT_TRUE(shell("chmod 755 $2; chmod 777 $1 $1/data; chmod 755 $1/closed; chmod 700 $1/hidden", {home, top.path}));
    asOrdinaryUser([&] {
      LinuxTrash trash(home + "/data", ::getuid());
        EXPECT_EQ(reasonOf(trash, home + "/closed/film"), "permission denied");
      EXPECT_EQ(reasonOf(trash, home + "/hidden/film"), "its folder cannot be opened: permission denied");
      EXPECT_EQ(itemsIn(trash), 0U);
    });
    EXPECT_EQ(contentOf(home + "/closed/film"), "film");
  });
}

}  // namespace
}  // namespace quon::test
