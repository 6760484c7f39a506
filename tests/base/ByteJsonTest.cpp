#include <gtest/gtest.h>
#include <random>

#include "RandomBytes.h"
#include "base/ByteJson.h"
#include "base/Text.h"
#include "support/Seed.h"

namespace quon {
namespace {

using namespace std::string_literals;

TEST(ByteJson, EscapesOnlyWhatIsNotValidUtf8) {
  EXPECT_EQ(encodeBytes("plain été 日本 \n\x7f"), "plain été 日本 \n\x7f");
  EXPECT_EQ(encodeBytes("a\xff"
                        "b"),
            "a\0ffb"s);
  EXPECT_EQ(encodeBytes("\xc3"), "\0c3"s);
  EXPECT_EQ(encodeBytes("\xed\xa0\x80"), "\0ed\0a0\0"s + "80");
  EXPECT_EQ(encodeBytes("\0"s), "\0"s + "00");
}

TEST(ByteJson, RejectsWhatItDoesNotWrite) {
  const std::vector<std::string> foreign{
      "\0"s,        "\0f"s, "a\0"s + "f", "\0FF"s,     "\0g0"s,     "\xff",
      "\0"s + "2f", "\0é"s, "\0c3\0a9"s,  "\xc3\0a9"s, "\0c3\xa9"s,
  };
  for (const std::string& text : foreign)
    EXPECT_EQ(decodeBytes(text), std::nullopt) << testing::PrintToString(text);
}

TEST(ByteJson, GivesRandomBytesBack) {
  std::mt19937_64 random(test::randomSeed());
  const std::vector<std::string_view> pieces{"x", "00",   "é",        "日",
                                             "😀", "\xc3", "\xe2\x80", std::string_view("\0", 1)};
  for (int round = 0; round < 20'000; ++round) {
    const std::string bytes = randomBytes(random, pieces, 12);
    const std::string text = encodeBytes(bytes);
    ASSERT_TRUE(isValidUtf8(text)) << testing::PrintToString(bytes);
    ASSERT_EQ(decodeBytes(text), bytes) << testing::PrintToString(bytes);
  }
}

}  // namespace
}  // namespace quon
