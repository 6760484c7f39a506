#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "QuonProcess.h"

namespace quon::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

TEST(Usage, WrongUsageIsToldInOneLine) {
  const Quon quon;
  const std::vector<Arguments> wrong = {{},
                                        {"weigh"},
                                        {"--json"},
                                        {"ls", "--limit", "0"},
                                        {"ls", "--limit", "-3"},
                                        {"ls", "--limit", "many"},
                                        {"ls", "--metric", "weight"},
                                        {"ls", ".", "here"},
                                        {"ls", ""},
                                        {"ls", ".", "line\nbreak"},
                                        {"scan", "--threads", "0"},
                                        {"scan", "--colour"},
                                        {"indexes", "."}};
  for (const Arguments& arguments : wrong) {
    const Finished done = quon.run(arguments);
    EXPECT_EQ(done.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(done.out, "");
    EXPECT_THAT(linesOf(done.err), SizeIs(1)) << done.err;
    EXPECT_THAT(done.err, testing::StartsWith("quon: "));
  }
}

TEST(Usage, HelpIsNoFailure) {
  const Quon quon;
  for (const Arguments& arguments :
       {Arguments{"--help"}, Arguments{"ls", "--help"}, Arguments{"--version"}}) {
    const Finished done = quon.run(arguments);
    EXPECT_EQ(done.status, 0) << testing::PrintToString(arguments);
    EXPECT_EQ(done.err, "");
    EXPECT_NE(done.out, "");
  }
  EXPECT_THAT(quon.run({"--help"}).out, HasSubstr("largest"));
}

TEST(Usage, AFolderMayBearTheNameOfACommand) {
  Quon quon;
  quon.folder.file("tree/scan/within", 10);
  quon.workingFolder = quon.tree;
  const Json list = quon.document({"ls", "scan"});
  EXPECT_EQ(list.at("path"), quon.tree + "/scan");
  EXPECT_EQ(list.at("files"), 1);
}

}  // namespace
}  // namespace quon::test
