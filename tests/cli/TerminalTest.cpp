#include <algorithm>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "QuonProcess.h"

namespace quon::test {
namespace {

/// The columns of a text of ASCII, Latin letters, block elements and CJK ideographs (U+4000 to U+9FFF).
std::size_t columnsOf(const std::string& text) {
  std::size_t columns = 0;
  for (const char each : text) {
    const auto byte = static_cast<unsigned char>(each);
    if ((byte & 0xc0U) != 0x80U) columns += byte >= 0xe4 && byte <= 0xe9 ? 2U : 1U;
  }
  return columns;
}

class OnTerminal : public testing::Test {
 protected:
  OnTerminal() {
    quon.folder.file("tree/" + std::string(200, 'l') + "/film.bin", 9000000);
    quon.folder.file("tree/\u6f22\u5b57\u6f22\u5b57\u6f22\u5b57\u6f22\u5b57\u6f22\u5b57\u6f22\u5b57/film.bin",
                     5000000);
    quon.folder.file("tree/short/film.bin", 2000000);
  }

  void SetUp() override {
    if (!canMakeTerminals()) GTEST_SKIP() << "no pseudo-terminals here";
  }

  std::vector<std::string> shown(const Arguments& arguments, std::uint16_t columns) {
    Descriptor terminal;
    Running running = quon.startOnTerminal(arguments, columns, terminal);
    std::string text = everythingFrom(terminal);
    EXPECT_EQ(running.wait().status, 0);
    std::erase(text, '\r');  // what the terminal adds to a line break
    return linesOf(text);
  }

  Quon quon;
};

TEST_F(OnTerminal, RowsFitItsWidth) {
  quon.environment["NO_COLOR"] = "1";
  ASSERT_EQ(quon.run({"scan", quon.tree}).status, 0);
  for (const std::uint16_t width : {std::uint16_t{40}, std::uint16_t{80}}) {
    for (const Arguments& arguments : {Arguments{"ls", quon.tree}, Arguments{"largest", quon.tree},
                                       Arguments{"names", quon.tree, "--name", "film.bin"}}) {
      const std::vector<std::string> lines = shown(arguments, width);
      const std::size_t heading = arguments.front() == "names" ? 0 : 2;
      ASSERT_EQ(lines.size(), heading + 3);
      for (std::size_t at = heading; at < lines.size(); ++at)
        EXPECT_LE(columnsOf(lines[at]), width) << lines[at];
      if (width == 80) {
        EXPECT_GE(columnsOf(lines[heading]), 79U) << "the width is not used: " << lines[heading];
      }
    }
  }
}

TEST_F(OnTerminal, ColourMarksFoldersUnlessNoColorIsSet) {
  const auto coloured = [&] {
    const std::vector<std::string> lines = shown({"ls", quon.tree}, 80);
    return std::ranges::count_if(
        lines, [](const std::string& line) { return line.find('\033') != std::string::npos; });
  };
  ASSERT_EQ(quon.run({"scan", quon.tree}).status, 0);
  EXPECT_EQ(coloured(), 3);
  quon.environment["NO_COLOR"] = "";
  EXPECT_EQ(coloured(), 3) << "an empty variable counts as none";
  quon.environment["NO_COLOR"] = "1";
  EXPECT_EQ(coloured(), 0);
}

}  // namespace
}  // namespace quon::test
