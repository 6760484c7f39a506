#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "Reference.h"
#include "scan/DirListing.h"
#include "support/ChildProcess.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> foldersListed(const std::string& path, bool oneFileSystem) {
  std::vector<std::string> names;
  for (const auto& child :
       DirListing::read(linuxPlatform(), path, optionsFor(path).rootDev, oneFileSystem).subdirs) {
    names.push_back(child.name);
  }
  return names;
}

RefPtr<DirNode> expectBothWalksMatch(const std::string& root) {
  (void)expectWalkMatches(ReferenceTree::of(root, true), optionsFor(root), 4);
  return expectWalkMatches(ReferenceTree::of(root, false), optionsFor(root, {.oneFileSystem = false}), 4);
}

TEST(Mounts, OtherFileSystemsAreEnteredOnlyOnRequest) {
  const TempFolder temp;
  temp.file("own/file", 1000);
  temp.file("other/hidden by the mount", 7);
  inPrivateMounts([&] {
    mountTmpfs(temp.at("other"));
    temp.file("other/deep/file", 500);
    temp.file("other/large", 2 << 20);
    const auto all = expectBothWalksMatch(temp.path);
    EXPECT_EQ(all->totalLogical, 1500U + (2 << 20));
    EXPECT_EQ(all->totalDirs, 3U);
    const auto own = expectWalkMatches(ReferenceTree::of(temp.path), optionsFor(temp.path), 1);
    EXPECT_EQ(own->totalLogical, 1000U);
    EXPECT_EQ(own->totalDirs, 1U);  // the mount point itself is left out
    EXPECT_THAT(foldersListed(temp.path, true), testing::ElementsAre("own"));
    EXPECT_THAT(foldersListed(temp.path, false), testing::UnorderedElementsAre("own", "other"));
  });
}

TEST(Mounts, FolderMountedTwiceCountsTwiceButItsHardLinksOnce) {
  const TempFolder temp;
  temp.file("real/single", 10);
  temp.file("real/linked", 100);
  fs::create_hard_link(temp.at("real/linked"), temp.at("real/second name"));
  temp.folder("again");
  inPrivateMounts([&] {
    bindMount(temp.at("real"), temp.at("again"));
    EXPECT_EQ(expectBothWalksMatch(temp.path)->totalLogical, 120U);
    EXPECT_THAT(foldersListed(temp.path, true), testing::UnorderedElementsAre("real", "again"));
  });
}

TEST(Mounts, EqualInodeNumbersOfTwoFileSystemsAreTwoFiles) {
  const TempFolder temp;
  for (const std::string name : {"a", "b"}) temp.folder(name);
  inPrivateMounts([&] {
    for (const std::string name : {"a", "b"}) {
      mountTmpfs(temp.at(name));
      temp.file(name + "/linked", name == "a" ? 1000 : 30);
      fs::create_hard_link(temp.at(name + "/linked"), temp.at(name + "/second name"));
    }
    struct stat first {
    }, second{};
    ASSERT_EQ(::stat(temp.at("a/linked").c_str(), &first) + ::stat(temp.at("b/linked").c_str(), &second), 0);
    ASSERT_EQ(first.st_ino, second.st_ino) << "the inode numbers do not collide";
    EXPECT_EQ(expectBothWalksMatch(temp.path)->totalLogical, 1030U);

    // A file of one of them, mounted into the other, whose device is the root's.
    temp.file("a/borrowed");
    bindMount(temp.at("b/linked"), temp.at("a/borrowed"));
    const auto root = expectBothWalksMatch(temp.at("a"));
    EXPECT_EQ(root->totalFiles, 2U);
    EXPECT_EQ(root->totalLogical, 1030U);
    const std::uint32_t device = optionsFor(temp.at("a")).rootDev;
    const auto linkIDs = DirListing::read(linuxPlatform(), temp.at("a"), device, true).linkIDs;
    ASSERT_EQ(linkIDs.size(), 3U);
    EXPECT_EQ(linkIDs.at("linked"), linkIDs.at("second name"));
    EXPECT_NE(linkIDs.at("linked"), linkIDs.at("borrowed"));
  });
}

}  // namespace
}  // namespace quon::test
