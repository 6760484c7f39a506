// Which folder is shown, and from which index.

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>

#include "QuonProcess.h"
#include "support/ChildProcess.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class Roots : public testing::Test {
 protected:
  Roots() {
    quon.folder.file("tree/one/within/file", 1000);
    quon.folder.file("tree/two/film", 3000000);
  }
  Quon quon;
};

TEST_F(Roots, ASubfolderIsListedFromTheIndexThatHoldsIt) {
  const Json scan = quon.document({"scan", quon.tree});
  const std::string before = readBytes(quon.onlyIndex());
  quon.folder.file("tree/one/within/later", 1);  // unseen by what comes out of the index
  const Json list = quon.document({"ls", quon.folder.at("tree/one/within"), "--no-catch-up"});
  EXPECT_EQ(list.at("path"), quon.folder.at("tree/one/within"));
  EXPECT_EQ(list.at("files"), 1);
  EXPECT_EQ(list.at("logical"), 1000);
  EXPECT_EQ(scan.at("index"), quon.onlyIndex());
  EXPECT_TRUE(readBytes(quon.onlyIndex()) == before) << "the index was changed";
}

TEST_F(Roots, ADamagedIndexIsReportedAndReplacedByAScan) {
  const std::string index = quon.document({"scan", quon.tree}).at("index");
  writeBytes(index, std::string(70000, '\xa5'));
  const Finished done = quon.run({"ls", quon.folder.at("tree/one"), "--json"});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_EQ(done.document().at("logical"), 1000);
  EXPECT_THAT(linesOf(done.err), SizeIs(1));
  EXPECT_THAT(done.err, HasSubstr("scanning " + quon.tree + " afresh"));
  EXPECT_EQ(quon.onlyIndex(), index);
  EXPECT_EQ(quon.run({"ls", quon.tree}).err, "") << "the index is whole again";
}

TEST_F(Roots, WithoutAPathTheConfiguredRootIsOpenedElseTheHome) {
  quon.folder.file("home/at home", 77);
  EXPECT_EQ(quon.document({"ls"}).at("path"), quon.home);
  const std::string config = quon.environment.at("XDG_CONFIG_HOME") + "/quon/defaults.ini";
  writeFile(config, "[quon]\nroot=" + quon.tree + "\n");
  EXPECT_EQ(quon.document({"ls"}).at("path"), quon.tree);
  writeFile(config, "[quon]\nroot=~/below\n");
  quon.folder.folder("home/below");
  EXPECT_EQ(quon.document({"ls"}).at("path"), quon.home + "/below");
  writeFile(config, "[quon]\nroot=/no/such/place\n");
  const Finished done = quon.run({"ls"});
  EXPECT_EQ(done.status, 1);
  EXPECT_THAT(done.err, HasSubstr("/no/such/place: no such folder"));
}

TEST_F(Roots, APathIsResolvedBeforeItNamesARoot) {
  std::filesystem::create_symlink(quon.tree, quon.folder.at("link"));
  quon.workingFolder = quon.folder.at("tree/two");
  for (const std::string& typed : {quon.folder.at("link"), quon.tree + "//", std::string(".."),
                                   quon.folder.at("link/one/./within/../..")}) {
    const Json scan = quon.document({"scan", typed});
    EXPECT_EQ(scan.at("root"), quon.tree) << typed;
    EXPECT_EQ(scan.at("index"), quon.onlyIndex()) << typed;
  }
}

/// The program's "/" is a small file system of its own, with the libraries that it needs mounted below.
TEST_F(Roots, PathsBelowTheFileSystemsRootHaveSingleSlashes) {
  inPrivateMounts([&] {
    mountTmpfs(quon.tree);
    for (const char* mounted : {"usr", "proc", "lib", "lib64"}) {
      const std::string at = quon.folder.folder("tree/" + std::string(mounted));
      ASSERT_EQ(::mount(("/" + std::string(mounted)).c_str(), at.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
                0);
    }
    quon.folder.file("tree/top.bin", 2000000);
    quon.folder.file("tree/home/me/deep.bin", 4000000);
    quon.newRoot = quon.tree;
    quon.workingFolder = "/";
    quon.environment["HOME"] = "/home/me";
    quon.environment["XDG_DATA_HOME"] = "/data";
    quon.environment["XDG_CONFIG_HOME"] = "/config";
    const Json scan = quon.document({"scan", "/"});
    EXPECT_EQ(scan.at("root"), "/");
    EXPECT_THAT(scan.at("index").get<std::string>(), testing::StartsWith("/data/quon/index/root-"));
    const Finished listed = quon.run({"ls", "/", "--json"});
    EXPECT_EQ(listed.document().at("path"), "/");
    EXPECT_THAT(listed.out, AllOf(HasSubstr("\"/top.bin\""), HasSubstr("\"/home\""), Not(HasSubstr("//"))));
    EXPECT_EQ(quon.document({"ls", "/home"}).at("rows")[0].at("path"), "/home/me");
    EXPECT_EQ(quon.document({"largest", "/"}).at("rows")[0].at("path"), "/home/me/deep.bin");
    EXPECT_EQ(quon.document({"indexes"}).at("rows")[0].at("root"), "/");
    ASSERT_EQ(::umount2(quon.tree.c_str(), MNT_DETACH), 0);
  });
}

}  // namespace
}  // namespace quon::test
