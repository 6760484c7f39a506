// What the search field's language means, token by token.
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include "search/TokenQuery.h"
#include "search/Tokens.h"

namespace quon::test {
namespace {

using Texts = std::vector<std::string>;

constexpr std::int64_t kNow = 1700000000;
constexpr std::int64_t kDay = 86400;

Texts words(const std::string& text) {
  const auto tokens = tokensOf(text);
  return {tokens.begin(), tokens.end()};
}

TokenQuery parsed(std::string_view text) {
  return TokenQuery::parse(text, kNow);
}

TEST(Tokens, WhitespaceOfAnyScriptSeparates) {
  EXPECT_EQ(words("  a\t\nb\u3000c\u00a0d\u2003\u2028e\xc2\x85 f\u200bg \xe3\x80 \xff "),
            (Texts{"a", "b", "c", "d", "e", "f\u200bg", "\xe3\x80", "\xff"}));
  EXPECT_TRUE(tokensOf(" \u3000 ").empty());
}

TEST(TokenQuery, EveryKeySetsItsFilter) {
  const TokenQuery query =
      parsed("Report kind:Video SIZE:>1GB size:<2t in:Library path:Logs name:X age:2y Age:<1w");
  EXPECT_EQ(query.terms, (Texts{"report", "x"}));
  EXPECT_EQ(query.pathTerms, (Texts{"library", "logs"}));
  EXPECT_EQ(query.kind, "media");
  EXPECT_EQ(query.minSize, 1073741824U);
  EXPECT_EQ(query.maxSize, 2199023255552U);
  EXPECT_EQ(query.olderThan, kNow - 730 * kDay);
  EXPECT_EQ(query.newerThan, kNow - 7 * kDay);
  EXPECT_FALSE(query.isEmpty());
  EXPECT_EQ(parsed("size:>1gb"), parsed("size:1gb"));
  EXPECT_EQ(parsed("age:>3d"), parsed("age:3d"));
  EXPECT_EQ(parsed("type:photos"), parsed("kind:image"));
}

TEST(TokenQuery, WhatIsNoFilterIsATerm) {
  EXPECT_EQ(parsed("Foo:Bar in: :x size").terms, (Texts{"foo:bar", "in:", ":x", "size"}));
  EXPECT_EQ(parsed("in:a:B").pathTerms, (Texts{"a:b"}));
  EXPECT_EQ(parsed("\xc3\x89T\xc3\x89 \xff").terms, (Texts{"\u00e9t\u00e9", "\xff"}));
}

TEST(TokenQuery, AFilterThatCannotBeReadIsLeftOut) {
  EXPECT_TRUE(parsed("size:big size:<> size:> age:0d age:12h kind:vid age:<").isEmpty());
  EXPECT_EQ(parsed("kind:code kind:nothing size:1k size:x"), parsed("kind:code size:1k"));
  EXPECT_EQ(parsed("kind:code kind:font size:1 size:>2"), parsed("kind:fonts size:2"));
}

TEST(TokenQuery, ReadsAmounts) {
  const std::vector<std::pair<std::string, std::uint64_t>> amounts{
      {"1.5gb", 1610612736},
      {"500mb", 524288000},
      {"1TB", 1ULL << 40U},
      {"16777215t", 16777215ULL << 40U},
      {"2g", 2ULL << 30U},
      {"7m", 7ULL << 20U},
      {"7kb", 7168},
      {"1.9b", 1},
      {".5k", 512},
      {"1.k", 1024},
      {"0gb", 0},
      {"+17", 17},
      {"007", 7},
      {"18446744073709551615", std::numeric_limits<std::uint64_t>::max()},
      {std::string(400, '0') + "1k", 1024},
      {"1." + std::string(2000, '3') + "k", 1365}};
  for (const auto& [text, bytes] : amounts) EXPECT_EQ(TokenQuery::parseBytes(text), bytes) << text;
  Texts none = words(
      "b gb .gb . 1.5 1.2.3k -1gb -1 +1gb ++1 + +-1 1e3gb 1e3 infgb inf nanb 0x1fgb 0x10 1,5gb 1gbb 1pb "
      "18446744073709551616 16777216t 18446744073709551615b \xff \u0661k");
  none.insert(none.end(), {"", "1 gb", "1\u00a0k", std::string(400, '9') + "k", std::string(400, '9')});
  for (const std::string& text : none) EXPECT_EQ(TokenQuery::parseBytes(text), std::nullopt) << text;
}

TEST(TokenQuery, ReadsDurations) {
  const auto seconds = TokenQuery::parseDuration;
  for (const std::string& text : words("2years 2year 2yr 2Y")) EXPECT_EQ(seconds(text), 730 * kDay) << text;
  for (const std::string& text : words("1.5months 1.5month 1.5mo")) EXPECT_EQ(seconds(text), 45 * kDay);
  for (const std::string& text : words("3weeks 3week 3w 21days 21day 21d"))
    EXPECT_EQ(seconds(text), 21 * kDay);
  EXPECT_EQ(seconds("0.00002d"), 1);
  EXPECT_TRUE(seconds("292471208677y"));
  Texts none = words("d 0d 0.0y -1d +1d 12h 5m 5 1e1d infd nand 0x1d 292471208678y 1dd");
  none.insert(none.end(), {"", "1 d", std::string(400, '9') + "d"});
  for (const std::string& text : none) EXPECT_EQ(seconds(text), std::nullopt) << text;
}

TEST(TokenQuery, TimesStayWithinTheirRange) {
  constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(TokenQuery::parse("age:292471208677y", -kDay * 365).olderThan, kLeast);
  EXPECT_EQ(TokenQuery::parse("age:<1d", kLeast).newerThan, kLeast);
  EXPECT_EQ(TokenQuery::parse("age:1d", 0).olderThan, -kDay);
}

}  // namespace
}  // namespace quon::test
