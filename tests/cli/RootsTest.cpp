// Which folder is shown, and from which index.

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "QuonProcess.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::HasSubstr;
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

}  // namespace
}  // namespace quon::test
