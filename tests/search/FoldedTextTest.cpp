// Folding by table, against the Unicode library applied to the whole text.
#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utf8proc.h>

#include "base/Text.h"
#include "search/FoldedText.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

std::string encoded(std::int32_t codePoint) {
  std::array<utf8proc_uint8_t, 4> bytes{};
  const auto length = utf8proc_encode_char(codePoint, bytes.data());
  return {reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(length)};
}

std::string normalised(const std::string& text, utf8proc_option_t form) {
  utf8proc_uint8_t* result = nullptr;
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                   static_cast<utf8proc_ssize_t>(text.size()), &result,
                                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | form));
  std::string copy(reinterpret_cast<const char*>(result), static_cast<std::size_t>(length));
  std::free(result);
  return copy;
}

std::string expected(const std::string& text) {
  return normalised(lowerCase(normalised(text, UTF8PROC_COMPOSE)), UTF8PROC_COMPOSE);
}

TEST(FoldedText, EqualsWhatTheLibraryMakesOfTheWholeText) {
  std::vector<std::int32_t> joining;
  for (std::int32_t at = 1; at < 0x11800; ++at) {
    if (at >= 0xd800 && at < 0xe000) continue;
    const std::string letter = encoded(at);
    ASSERT_EQ(folded(letter), expected(letter)) << at;
    if (utf8proc_get_property(at)->combining_class != 0 || utf8proc_category(at) == UTF8PROC_CATEGORY_MC)
      joining.push_back(at);
  }
  std::mt19937_64 random(randomSeed());
  constexpr std::array<std::array<std::int32_t, 2>, 7> kRanges{{{0x20, 0x17f},
                                                                {0x300, 0x460},
                                                                {0x900, 0xe50},
                                                                {0x1100, 0x1200},
                                                                {0x1e00, 0x2130},
                                                                {0x3040, 0x3100},
                                                                {0xac00, 0xfb50}}};
  std::size_t changed = 0;
  for (int round = 0; round < 30000; ++round) {
    std::string text;
    for (std::size_t left = 1 + random() % 8; left > 0; --left) {
      const auto& [first, end] = kRanges.at(random() % kRanges.size());
      const auto inRange = first + static_cast<std::int32_t>(random() % static_cast<unsigned>(end - first));
      const std::int32_t letter = random() % 4 == 0 ? joining[random() % joining.size()] : inRange;
      if (letter < 0xd800 || letter >= 0xe000) text += encoded(letter);
    }
    ASSERT_EQ(folded(text), expected(text)) << testing::PrintToString(text);
    ASSERT_EQ(folded(normalised(text, UTF8PROC_DECOMPOSE)), folded(text)) << testing::PrintToString(text);
    changed += folded(text) != lowerCase(text) ? 1 : 0;
  }
  EXPECT_GT(changed, 1000U) << "the texts test nothing";
}

TEST(FoldedText, KeepsStrayBytesAndFoldsAroundThem) {
  EXPECT_EQ(folded("\xffR\u00c9\xc3 E\u0301\xe2\x82"), "\xffr\u00e9\xc3 \u00e9\xe2\x82");
  EXPECT_EQ(folded("\xed\xa0\x80\xc0\x80"
                   "A"),
            "\xed\xa0\x80\xc0\x80"
            "a");
  std::string text = "x";
  appendFolded(text, "\u0416E\u0301");
  EXPECT_EQ(text, "x\u0436\u00e9");
}

}  // namespace
}  // namespace quon::test
