#include <array>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "RandomBytes.h"
#include "base/Text.h"
#include "support/Seed.h"

namespace quon {
namespace {

/// A code point in UTF-8, by the definition of the encoding.
std::string encoded(char32_t point) {
  const auto lead = [](char32_t bits) { return static_cast<char>(bits); };
  const auto tail = [](char32_t bits) { return static_cast<char>(0x80U | (bits & 0x3fU)); };
  if (point < 0x80) return {lead(point)};
  if (point < 0x800) return {lead(0xc0U | point >> 6U), tail(point)};
  if (point < 0x10000) return {lead(0xe0U | point >> 12U), tail(point >> 6U), tail(point)};
  return {lead(0xf0U | point >> 18U), tail(point >> 12U), tail(point >> 6U), tail(point)};
}

TEST(Utf8, AcceptsExactlyTheWellFormedSequences) {
  std::unordered_set<std::string> wellFormed;
  for (char32_t point = 0x80; point < 0x110000; ++point) {
    const bool isSurrogate = point >= 0xd800 && point < 0xe000;
    if (!isSurrogate) wellFormed.insert(encoded(point));
  }
  constexpr std::array<int, 6> edges{0x00, 0x7f, 0x80, 0xbf, 0xc0, 0xff};
  for (int lead = 0x80; lead < 0x100; ++lead) {
    for (int second = 0; second < 0x100; ++second) {
      for (const int third : edges) {
        for (const int fourth : edges) {
          std::string bytes;
          for (const int byte : {lead, second, third, fourth}) {
            bytes += static_cast<char>(byte);
            const bool expected = wellFormed.contains(bytes);
            ASSERT_EQ(isValidUtf8(bytes), expected) << testing::PrintToString(bytes);
            if (expected) break;  // what follows the first sequence is not its business
          }
        }
      }
    }
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
  const std::vector<std::pair<char32_t, char32_t>> ranges{
      {0, 0x1f}, {0x7f, 0x9f}, {0x2028, 0x202e}, {0x2066, 0x2069}};
  std::vector<std::string> hostile;
  for (const auto& [first, last] : ranges) {
    for (char32_t point = first; point <= last; ++point) hostile.push_back(encoded(point));
  }
  for (int round = 0; round < 20'000; ++round) {
    const std::string bytes = randomBytes(random, pieces, 12);
    const std::string text = displayText(bytes);
    ASSERT_TRUE(isValidUtf8(text)) << testing::PrintToString(bytes);
    for (const std::string& each : hostile)
      ASSERT_EQ(text.find(each), std::string::npos) << testing::PrintToString(bytes);
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
