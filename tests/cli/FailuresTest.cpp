#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>

#include "QuonProcess.h"
#include "support/ChildProcess.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::UnorderedElementsAre;

void expectOneLine(const Finished& done, const std::string& line) {
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(done.out, "");
  EXPECT_EQ(done.err, "quon: " + line + "\n");
}

TEST(Failures, OneLineNamesTheFolderThatCannotBeOpened) {
  asOrdinaryUser([] {
    const Quon quon;
    const std::string file = quon.folder.file("tree/file", 1);
    const std::string closed = quon.folder.folder("tree/closed/within");
    ASSERT_EQ(::chmod(quon.folder.at("tree/closed").c_str(), 0), 0);
    for (const char* command : {"scan", "ls", "largest", "names"}) {
      for (const bool json : {false, true}) {
        const auto run = [&](const std::string& path) {
          return quon.run(json ? Arguments{command, path, "--json"} : Arguments{command, path});
        };
        expectOneLine(run(quon.tree + "/none"), "cannot open " + quon.tree + "/none: no such folder");
        expectOneLine(run(file), "cannot open " + file + ": not a folder");
        expectOneLine(run(quon.tree + "/closed"), "cannot open " + quon.tree + "/closed: permission denied");
        expectOneLine(run(closed), "cannot open " + closed + ": permission denied");
        expectOneLine(run(quon.tree + "/a\nb"), "cannot open " + quon.tree + "/a␊b: no such folder");
      }
    }
    EXPECT_THAT(quon.indexFiles(), SizeIs(0));
  });
}

TEST(Failures, OutputThatCannotBeWrittenIsAFailure) {
  Quon quon;
  for (int number = 0; number < 400; ++number) quon.folder.folder("tree/folder " + std::to_string(number));
  quon.folder.file("tree/film", 2000000);
  quon.output = "/dev/full";
  for (const Arguments& arguments :
       {Arguments{"scan", quon.tree}, Arguments{"ls", quon.tree, "--json"}, Arguments{"largest", quon.tree},
        Arguments{"names", quon.tree}, Arguments{"indexes", "--json"}, Arguments{"--help"}}) {
    expectOneLine(quon.run(arguments), "cannot write to standard output: No space left on device");
  }
}

TEST(Failures, UnreadableFoldersAreReportedAndDoNotFail) {
  asOrdinaryUser([] {
    const Quon quon;
    quon.folder.file("tree/open/file", 500);
    const std::string outer = quon.folder.folder("tree/closed");
    const std::string inner = quon.folder.folder("tree/open/closed too");
    for (const std::string& closed : {outer, inner}) {
      writeFile(closed + "/hidden", "hidden");
      ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
    }
    const Finished scan = quon.run({"scan", quon.tree, "--json"});
    EXPECT_EQ(scan.status, 0);
    EXPECT_EQ(scan.document().at("errors"), 2);
    EXPECT_THAT(scan.document().at("errorSamples"), UnorderedElementsAre(outer, inner));
    EXPECT_EQ(scan.document().at("logical"), 500);
    EXPECT_THAT(scan.document().at("errorReasons"), testing::Each("permission denied"));
    EXPECT_THAT(linesOf(scan.err), UnorderedElementsAre(HasSubstr("2 folders could not be read"),
                                                        "  " + outer + ": permission denied",
                                                        "  " + inner + ": permission denied"));

    // Whatever shows totals that are too small says so, and only of what it shows.
    for (const char* command : {"ls", "largest"}) {
      const Finished rows = quon.run({command, quon.folder.at("tree/open"), "--json"});
      EXPECT_EQ(rows.status, 0);
      EXPECT_EQ(rows.document().at("logical"), 500);
      EXPECT_THAT(linesOf(rows.err),
                  ElementsAre(HasSubstr("1 folder could not be read"), testing::StartsWith("  " + inner)));
    }
  });
}

/// Scans a tree whose index does not fit any more: the scan answers, and the earlier index stays.
void expectNotSaved(Quon& quon, const std::map<int, rlim_t>& limits, const std::string& reason) {
  quon.folder.file("tree/file", 500);
  const std::string before = readBytes(quon.document({"scan", quon.tree}).at("index").get<std::string>());
  for (int number = 0; number < 8000; ++number) {
    quon.folder.file("tree/many/" + std::string(200, 'n') + std::to_string(number));
  }
  quon.limits = limits;
  const Finished scan = quon.run({"scan", quon.tree, "--json"});
  EXPECT_EQ(scan.status, 1);
  EXPECT_EQ(scan.document().at("files"), 8001);
  EXPECT_EQ(scan.document().at("index"), nullptr);
  EXPECT_THAT(linesOf(scan.err), ElementsAre(testing::ContainsRegex("the index was not saved: .*" + reason)));
  EXPECT_TRUE(readBytes(quon.onlyIndex()) == before) << "the earlier index was changed";
}

TEST(Failures, AFullDiskKeepsTheEarlierIndex) {
  inPrivateMounts([] {
    Quon quon;
    const std::string data = quon.environment.at("XDG_DATA_HOME");
    ASSERT_EQ(::mount("tmpfs", data.c_str(), "tmpfs", 0, "size=1m,mode=0700"), 0);
    expectNotSaved(quon, {}, "full");
    ASSERT_EQ(::umount2(data.c_str(), MNT_DETACH), 0);
  });
}

TEST(Failures, ALimitOfFileSizesKeepsTheEarlierIndex) {
  Quon quon;
  expectNotSaved(quon, {{RLIMIT_FSIZE, 1 << 20}}, "I/O");
}

TEST(Failures, AFileInPlaceOfTheDataFolderLosesOnlyTheIndex) {
  const Quon quon;
  quon.folder.file("tree/file", 500);
  writeFile(quon.environment.at("XDG_DATA_HOME") + "/quon", "mine");
  const Finished rows = quon.run({"ls", quon.tree, "--json"});
  EXPECT_EQ(rows.status, 0);
  EXPECT_EQ(rows.document().at("logical"), 500);
  EXPECT_THAT(linesOf(rows.err), ElementsAre(HasSubstr("the index was not saved: ")));
}

TEST(Failures, LackOfMemoryEndsWithOneLineAndLeavesAWholeIndex) {
  constexpr rlim_t kMegabyte = 1 << 20;
  constexpr rlim_t kEnough = 4096 * kMegabyte;
  Quon quon;
  for (int number = 0; number < 5000; ++number) quon.folder.file("tree/" + std::to_string(number) + "/file");
  quon.limits = {{RLIMIT_AS, kEnough}};
  if (quon.run({"scan", quon.tree}).status != 0) GTEST_SKIP() << "a sanitizer reserves more than any limit";
  int failed = 0;
  for (rlim_t most = 32 * kMegabyte; most < 400 * kMegabyte; most += most / 4) {
    quon.limits = {{RLIMIT_AS, most}};
    const Finished scan = quon.run({"scan", quon.tree, "--json"});
    if (scan.status == 0) continue;
    EXPECT_EQ(scan.status, 1) << most << " bytes: " << scan.err;
    EXPECT_THAT(linesOf(scan.err), ElementsAre(testing::StartsWith("quon: ")));
    ++failed;
    // It may run out of memory when only the answer is missing; then the index is a new one, and whole.
    quon.limits = {{RLIMIT_AS, kEnough}};
    const Finished rows = quon.run({"ls", quon.tree, "--no-catch-up", "--json"});
    EXPECT_EQ(rows.err, "") << "the index was refused";
    EXPECT_EQ(rows.document().at("files"), 5000) << quon.onlyIndex();
  }
  EXPECT_GT(failed, 3);
}

}  // namespace
}  // namespace quon::test
