#include <array>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "RandomBytes.h"
#include "base/Text.h"
#include "support/Seed.h"

namespace quon {
namespace {

/// The well-formed sequences as the Unicode standard tabulates them.
bool isWellFormed(const std::array<unsigned char, 4>& bytes, std::size_t length) {
  const auto within = [&](std::size_t at, int low, int high) {
    return bytes[at] >= low && bytes[at] <= high;
  };
  const auto tail = [&](std::size_t at) { return within(at, 0x80, 0xbf); };
  switch (length) {
    case 2:
      return within(0, 0xc2, 0xdf) && tail(1);
    case 3:
      return tail(2) &&
             ((bytes[0] == 0xe0 && within(1, 0xa0, 0xbf)) || (bytes[0] == 0xed && within(1, 0x80, 0x9f)) ||
              (bytes[0] != 0xed && within(0, 0xe1, 0xef) && tail(1)));
    case 4:
      return tail(2) && tail(3) &&
             ((bytes[0] == 0xf0 && within(1, 0x90, 0xbf)) || (bytes[0] == 0xf4 && within(1, 0x80, 0x8f)) ||
              (within(0, 0xf1, 0xf3) && tail(1)));
    default:
      return false;
  }
}

TEST(Utf8, AcceptsExactlyTheWellFormedSequences) {
  constexpr std::array<unsigned char, 6> edges{0x00, 0x7f, 0x80, 0xbf, 0xc0, 0xff};
  for (int lead = 0x80; lead < 0x100; ++lead) {
    for (int second = 0; second < 0x100; ++second) {
      for (const unsigned char third : edges) {
        for (const unsigned char fourth : edges) {
          const std::array<unsigned char, 4> bytes{static_cast<unsigned char>(lead),
                                                   static_cast<unsigned char>(second), third, fourth};
          std::size_t expected = 0;
          for (std::size_t length = 2; length <= 4; ++length) {
            if (isWellFormed(bytes, length)) expected = length;
          }
          // What follows the first sequence is not its business: the prefix is asked for that sequence only.
          const std::string_view whole(reinterpret_cast<const char*>(bytes.data()), bytes.size());
          for (std::size_t length = 1; length <= 4; ++length) {
            const bool exact = length == expected;
            const bool more = expected != 0 && length > expected;
            if (more) continue;
            ASSERT_EQ(isValidUtf8(whole.substr(0, length)), exact)
                << testing::PrintToString(whole.substr(0, length));
          }
        }
      }
    }
  }
}

TEST(Utf8, FindsTheFirstBadByteWhereverItStands) {
  for (std::size_t before = 0; before < 20; ++before) {
    const std::string good = std::string(before, 'a') + "é";
    EXPECT_EQ(validUtf8Prefix(good + "\xff" + std::string(20, 'b')), good.size());
    EXPECT_EQ(validUtf8Prefix(std::string(before, 'a') + "\xc3"), before);
    EXPECT_TRUE(isValidUtf8(good + good));
  }
}

TEST(DisplayText, MakesTheUnshowableVisible) {
  EXPECT_EQ(displayText("été 日本 😀"), "été 日本 😀");
  EXPECT_EQ(displayText(std::string_view("\0\n\x1b\x7f", 4)), "␀␊␛␡");
  EXPECT_EQ(displayText("a\xff\xc3"
                        "b\xe2\x80"),
            "a\uFFFD\uFFFDb\uFFFD\uFFFD");
  EXPECT_EQ(displayText("\u0085\u009b"), "\uFFFD\uFFFD");
  EXPECT_EQ(displayText("exe.\u202Egpj\u2028\u2066"), "exe.\uFFFDgpj\uFFFD\uFFFD");
}

TEST(DisplayText, NeverLetsAHostileNameThrough) {
  std::mt19937_64 random(test::randomSeed());
  const std::vector<std::string_view> pieces{"\xc2",     "\xc2\x9b", "\xe2\x80", "\xa8",   "\xae",
                                             "\xe2\x81", "\xa7",     "\n",       "\xe2",   "\x80",
                                             "é",        "x",        "日",       "\x1b[2J"};
  for (int round = 0; round < 20'000; ++round) {
    const std::string bytes = randomBytes(random, pieces, 12);
    const std::string text = displayText(bytes);
    ASSERT_TRUE(isValidUtf8(text)) << testing::PrintToString(bytes);
    for (std::size_t at = 0; at < text.size(); ++at) {
      const auto byteAt = [&](std::size_t offset) -> int {
        return at + offset < text.size() ? static_cast<unsigned char>(text[at + offset]) : 0;
      };
      const int pair = byteAt(0) << 8 | byteAt(1);
      ASSERT_FALSE(byteAt(0) < 0x20 || byteAt(0) == 0x7f) << testing::PrintToString(bytes);
      ASSERT_FALSE(pair >= 0xc280 && pair <= 0xc29f) << testing::PrintToString(bytes);
      ASSERT_FALSE(pair == 0xe280 && byteAt(2) >= 0xa8 && byteAt(2) <= 0xae) << testing::PrintToString(bytes);
      ASSERT_FALSE(pair == 0xe281 && byteAt(2) >= 0xa6 && byteAt(2) <= 0xa9) << testing::PrintToString(bytes);
    }
    ASSERT_EQ(displayText(text), text) << testing::PrintToString(bytes);
  }
}

TEST(DisplayWidth, CountsColumns) {
  EXPECT_EQ(displayWidth("abc"), 3U);
  EXPECT_EQ(displayWidth("e\u0301te\u0301"), 3U);
  EXPECT_EQ(displayWidth("日本"), 4U);
  EXPECT_EQ(displayWidth("😀"), 2U);
  EXPECT_EQ(displayWidth(displayText("\n\xff")), 2U);
  EXPECT_EQ(displayWidth("\xff"), 1U);
}

TEST(FitToWidth, CutsInTheMiddle) {
  EXPECT_EQ(fitToWidth("holiday.jpeg", 12), "holiday.jpeg");
  EXPECT_EQ(fitToWidth("holiday.jpeg", 11), "holid….jpeg");
  EXPECT_EQ(fitToWidth("holiday.jpeg", 8), "holi…peg");
  EXPECT_EQ(fitToWidth("holiday.jpeg", 2), "h…");
  EXPECT_EQ(fitToWidth("holiday.jpeg", 1), "…");
  EXPECT_EQ(fitToWidth("holiday.jpeg", 0), "");
  EXPECT_EQ(fitToWidth("日本日本日本", 7), "日…日本");  // the front leaves a column over, the end takes it
  EXPECT_EQ(fitToWidth("日本日本日本", 8), "日本…本");
}

TEST(FitToWidth, KeepsCharactersWholeAtEveryWidth) {
  std::mt19937_64 random(test::randomSeed());
  const std::vector<std::string> characters{"a", "e\u0301", "日", "👩\u200d🚀", "g\u0308\u0323", "\xff", "é"};
  for (int round = 0; round < 500; ++round) {
    std::vector<std::string> drawn;
    std::string text;
    for (std::size_t left = 1 + random() % 12; left > 0; --left) {
      drawn.push_back(characters[random() % characters.size()]);
      text += drawn.back();
    }
    const std::size_t width = displayWidth(text);
    for (std::size_t columns = 1; columns < width; ++columns) {
      const std::string fitted = fitToWidth(text, columns);
      ASSERT_LE(displayWidth(fitted), columns) << text;
      const std::size_t cut = fitted.find("…");
      ASSERT_NE(cut, std::string::npos) << text;
      std::string front;
      for (const std::string& character : drawn) {
        if (front.size() < cut) front += character;
      }
      std::string back;
      for (auto each = drawn.rbegin(); each != drawn.rend(); ++each) {
        if (back.size() < fitted.size() - cut - std::string_view("…").size()) back.insert(0, *each);
      }
      front += "…";
      front += back;
      ASSERT_EQ(fitted, front) << text << " in " << columns;
    }
    ASSERT_EQ(fitToWidth(text, width), text);
  }
}

TEST(LowerCase, MapsEveryScriptAndKeepsOtherBytes) {
  EXPECT_EQ(lowerCase("@AZ[`az{ 09"), "@az[`az{ 09");
  EXPECT_EQ(lowerCase("ÉTÉ"), "été");
  EXPECT_EQ(lowerCase("ΑΒΓ ЖЯ Ａ 日本 ẞ"), "αβγ жя ａ 日本 ß");
  EXPECT_EQ(lowerCase("\u023A"), "\u2C65");  // two bytes become three
  EXPECT_EQ(lowerCase("\u0130\u0425\xd0"),
            "i\u0445\xd0");  // two bytes become one, then stay two, then end early
  EXPECT_EQ(lowerCase("A\xff"
                      "B\xc3"),
            "a\xff"
            "b\xc3");
}

}  // namespace
}  // namespace quon
