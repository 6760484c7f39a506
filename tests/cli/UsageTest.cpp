#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "QuonProcess.h"

namespace quon::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

TEST(Usage, WrongUsageIsExplainedInOneLine) {
  const Quon quon;
  const std::vector<Arguments> wrong = {{},
                                        {"weigh"},
                                        {"--json"},
                                        {"ls", "--limit", "0"},
                                        {"ls", "--limit", "1000000001"},
                                        {"ls", "--metric", "weight"},
                                        {"ls", ""},
                                        {"ls", "-x"},
                                        {"ls", ".", "line\nbreak"},
                                        {"scan", "--threads", "0"},
                                        {"search", "x", "--limt", "3"},
                                        {"untouched", "--older-than", "soon"},
                                        {"indexes", "."}};
  for (const Arguments& arguments : wrong) {
    const Finished done = quon.run(arguments);
    EXPECT_EQ(done.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(done.out, "");
    EXPECT_THAT(linesOf(done.err), SizeIs(1)) << done.err;
    EXPECT_THAT(done.err, testing::StartsWith("quon: "));
    EXPECT_THAT(done.err, testing::EndsWith("--help)\n"));
  }
}

TEST(Usage, EveryCommandTakesTheSharedOptions) {
  const Quon quon;
  for (const char* verb : {"scan", "ls", "largest", "kinds", "untouched", "reclaim", "search", "commands",
                           "names", "indexes", "watch", "record"}) {
    const Finished help = quon.run({verb, "--metric", "physical", "--json", "--no-catch-up", "--help"});
    EXPECT_EQ(help.status, 0) << verb << ": " << help.err;
    EXPECT_THAT(help.out, HasSubstr(std::string("Usage: quon ") + verb));
    EXPECT_THAT(quon.run({"--help"}).out, HasSubstr(std::string("\n  ") + verb + " "));
  }
  EXPECT_EQ(quon.run({"--version"}).status, 0);
}

TEST(Usage, AFolderMayBearTheNameOfACommand) {
  Quon quon;
  quon.folder.file("tree/[sub]/scan/within", 10);
  quon.workingFolder = quon.folder.at("tree/[sub]");
  EXPECT_EQ(quon.document({"ls", "scan"}).at("path"), quon.workingFolder + "/scan");
  quon.workingFolder = quon.tree;
  EXPECT_EQ(quon.document({"ls", "[sub]", "--limit", "1000000000"}).at("files"), 1);
}

}  // namespace
}  // namespace quon::test
