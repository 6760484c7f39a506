// What can happen between two reads of one batch, made to happen every time.
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>

#include "ScannedTree.h"
#include "base/Path.h"
#include "linux_fs/LinuxFiles.h"
#include "support/HookedDirectories.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using Refresh::Depth;

/// Files that are gone by the time their own facts are read.
class VanishedFiles final : public LinuxFiles {
 public:
  std::string gone;

  [[nodiscard]] std::optional<PathFacts> ownFacts(const std::string& path,
                                                  std::error_code& error) const override {
    if (path != gone) return LinuxFiles::ownFacts(path, error);
    error = std::make_error_code(std::errc::no_such_file_or_directory);
    return std::nullopt;
  }
};

class Races : public ScannedTree {
 protected:
  /// A file gets its second name after the batch has read the folder of the first, and before it reads that
  /// of the second. `depth` is that of the change of the first.
  void expectFirstNameFound(const std::string& firstName, Depth depth) {
    tree.file(firstName, 5000);
    tree.folder("second");
    const std::string index = scan("patched");
    const HookedDirectories directories(platform.directories, [&](const std::string& opened) {
      if (opened == tree.at("second") && !std::filesystem::exists(tree.at("second/two"))) {
        std::filesystem::create_hard_link(tree.at(firstName), tree.at("second/two"));
      }
    });
    patch({directories, platform.files, platform.threads}, index,
          {{tree.at("first"), depth}, {tree.at("second"), Depth::shallow}}, 1);
    ASSERT_TRUE(std::filesystem::exists(tree.at("second/two")));
    EXPECT_EQ(differences(index, scan("fresh")), "");
  }
};

/// The folder of the first name is not read again for that: nothing happens in it.
TEST_F(Races, AFileThatGetsItsSecondNameWhileItIsScannedIsCountedOnce) {
  tree.file("a/one", 5000);
  tree.file("b/one", 70'000);
  std::string before;
  std::string linked;
  const HookedDirectories directories(platform.directories, [&](const std::string& opened) {
    if (opened != "a" && opened != "b") return;
    if (!before.empty()) {
      linked = tree.at(opened);
      std::filesystem::create_hard_link(tree.at(before + "/one"), linked + "/two");
    }
    before = opened;
  });
  const std::string index = scan("patched", {directories, platform.files, platform.threads}, 1);
  ASSERT_EQ(RawIndex(index).value("SELECT COUNT(*) FROM links"), "1")
      << "it had both names from the beginning";
  const std::uint64_t event = load(index).lastEventId;
  patch(platform, index, {}, event + 1);  // another program, before the event has come
  patch(platform, index, {{linked, Depth::shallow}}, event + 2);
  EXPECT_EQ(differences(index, scan("fresh")), "");
}

/// The folder of the name that stays was read while the file had two names; no event says that one is left.
TEST_F(Races, AFileWhoseOtherNameGoesWhileTheBatchIsReadHasOneName) {
  for (const bool wasKnown : {false, true}) {
    for (const Depth depth : {Depth::shallow, Depth::deep}) {
      const std::string home =
          std::string(wasKnown ? "known" : "new") + (depth == Depth::deep ? "-deep" : "");
      const std::string first = home + "/first/one";
      const std::string second = home + "/second/two";
      tree.file(first, 5000);
      tree.folder(home + "/second");
      if (wasKnown) std::filesystem::create_hard_link(tree.at(first), tree.at(second));
      const std::string index = scan("patched-" + home);
      if (!wasKnown) std::filesystem::create_hard_link(tree.at(first), tree.at(second));
      const HookedDirectories directories(platform.directories, [&](const std::string& opened) {
        if (opened == tree.at(home + "/second")) std::filesystem::remove(tree.at(second));
      });
      patch({directories, platform.files, platform.threads}, index,
            {{tree.at(home + "/first"), depth}, {tree.at(home + "/second"), Depth::shallow}}, 1);
      ASSERT_FALSE(std::filesystem::exists(tree.at(second))) << home;
      EXPECT_EQ(differences(index, scan("fresh-" + home)), "") << home;
    }
  }
}

/// Package stores do this all day: one folder is read for the new name and one for the first.
TEST_F(Races, ASecondNameCostsAFewListings) {
  for (int number = 0; number < 300; ++number) {
    tree.file("folder" + std::to_string(number) + "/file", 5000U + static_cast<unsigned>(number) % 3);
  }
  tree.folder("second");
  const std::string index = scan("patched");
  std::filesystem::create_hard_link(tree.at("folder7/file"), tree.at("second/two"));
  int opened = 0;
  const HookedDirectories directories(platform.directories, [&](const std::string&) { ++opened; });
  patch({directories, platform.files, platform.threads}, index, {{tree.at("second"), Depth::shallow}}, 1);
  EXPECT_EQ(differences(index, scan("fresh")), "");
  EXPECT_LE(opened, 3);
}

/// A file that was written through its new name is nowhere in the index with its present size.
TEST_F(Races, AFirstNameIsFoundThoughTheFileWasWrittenThroughItsSecond) {
  tree.file("first/one", 5000);
  tree.folder("second");
  const std::string index = scan("patched");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));
  tree.file("second/two", 70'000);
  patch(platform, index, {{tree.at("second"), Depth::shallow}}, 1);
  EXPECT_EQ(differences(index, scan("fresh")), "");
}

/// Nor is one that then got an old time, as copied and unpacked files do.
TEST_F(Races, AFirstNameIsFoundThoughTheFileWasWrittenAndDatedBackThroughItsSecond) {
  tree.file("first/one", 5000);
  tree.folder("second");
  const std::string index = scan("patched");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));
  tree.file("second/two", 70'000);
  const std::array<timespec, 2> old{};
  ASSERT_EQ(::utimensat(AT_FDCWD, tree.at("second/two").c_str(), old.data(), 0), 0);
  patch(platform, index, {{tree.at("second"), Depth::shallow}}, 1);
  EXPECT_EQ(differences(index, scan("fresh")), "");
}

/// The folder of the name that stays gets no event, whichever of the two was counted.
TEST_F(Races, AWriteThroughANameThatThenGoesIsSeenAtTheOther) {
  for (const std::string gone : {"first", "second"}) {
    tree.file("first/" + gone, 5000);
    tree.folder("second");
    std::filesystem::create_hard_link(tree.at("first/" + gone), tree.at("second/" + gone));
    const std::string index = scan("patched-" + gone);
    const std::string going = joinPath(gone, gone);
    tree.file(going, 70'000);
    std::filesystem::remove(tree.at(going));
    patch(platform, index, {{tree.at(gone), Depth::shallow}}, 1);
    EXPECT_EQ(differences(index, scan("fresh-" + gone)), "");
  }
}

/// The folder of the other name was never read while it had it, so nothing says later that it has gone.
TEST_F(Races, AnOldFileWhoseOtherNameCameAndWentHasOneName) {
  const std::array<timespec, 2> old{};
  ASSERT_EQ(::utimensat(AT_FDCWD, tree.file("first/one", 5000).c_str(), old.data(), 0), 0);
  tree.folder("second");
  const std::string index = scan("patched");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));
  patch(platform, index, {{tree.at("first"), Depth::shallow}}, 1);
  std::filesystem::remove(tree.at("second/two"));
  patch(platform, index, {{tree.at("second"), Depth::shallow}}, 2);
  EXPECT_EQ(differences(index, scan("fresh")), "");
}

/// A package store contains more empty files of one time than are compared by inode.
TEST_F(Races, AFirstNameIsFoundAmongThousandsOfFilesThatAreAlike) {
  tree.folder("second");
  const std::array<timespec, 2> old{};
  ASSERT_EQ(::utimensat(AT_FDCWD, tree.file("first/one").c_str(), old.data(), 0), 0);
  const std::string index = scan("patched");
  RawIndex raw(index);
  raw.dropTotals();
  raw.exec(
      "UPDATE files SET rowid = 20000;"
      "WITH RECURSIVE each(id) AS (SELECT 1001 UNION ALL SELECT id + 1 FROM each WHERE id < 5200)"
      "INSERT INTO dirs SELECT id, (SELECT id FROM dirs WHERE parent IS NULL), id, 0, 0 FROM each;"
      "INSERT INTO files(rowid, dir, name, logical, physical, mtime)"
      "SELECT id, id, 'one', 0, 0, 0 FROM dirs WHERE id > 1000");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));
  patch(platform, index, {{tree.at("second"), Depth::shallow}}, 1);
  EXPECT_EQ(raw.value("SELECT COUNT(*) FROM links"), "2");
}

/// No descriptor is to be had just now: that is no empty folder.
TEST_F(Races, AFolderThatCannotBeReadNowKeepsItsContents) {
  tree.file("a/below/one", 5000);
  const std::string index = scan("patched");
  const std::string before = readBytes(index);
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  for (const char* refused : {"a", "a/below", "new"}) {
    tree.file("new/two", 70);
    const HookedDirectories directories(platform.directories, [&](const std::string& opened) {
      const rlimit none{opened == tree.at(refused) ? 0 : limit.rlim_cur, limit.rlim_max};
      (void)::setrlimit(RLIMIT_NOFILE, &none);
    });
    try {
      patch({directories, platform.files, platform.threads}, index,
            {{root, Depth::shallow}, {tree.at("a"), Depth::shallow}, {tree.at("a/below"), Depth::deep}}, 1);
      ADD_FAILURE() << refused << " was taken for read";
    } catch (const Refresh::Failure& failure) {
      EXPECT_EQ(failure.kind, Refresh::Failure::Kind::notRead) << refused;
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(readBytes(index), before) << refused;
  }
}

TEST_F(Races, AFirstNameInAFolderThatWasReadBeforeIsFound) {
  expectFirstNameFound("first/one", Depth::shallow);
}

TEST_F(Races, AFirstNameBelowAFolderThatWasReadBeforeIsFound) {
  expectFirstNameFound("first/below/one", Depth::deep);
}

TEST_F(Races, ANameThatVanishesBeforeItsLinksAreCountedIsSearchedForTheNextTime) {
  tree.file("first/one", 5000);
  tree.folder("second");
  const std::string index = scan("patched");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));
  VanishedFiles files;
  for (const std::string& gone : {tree.at("second/two"), std::string()}) {
    files.gone = gone;
    patch({platform.directories, files, platform.threads}, index, {{tree.at("second"), Depth::shallow}}, 1);
  }
  EXPECT_EQ(differences(index, scan("fresh")), "");
}

}  // namespace
}  // namespace quon::test
