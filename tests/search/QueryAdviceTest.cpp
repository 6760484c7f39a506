// What is said about searches that may not mean what was typed.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>

#include "search/QueryAdvice.h"
#include "search/TokenQuery.h"
#include "search/Tokens.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Why the one token is ignored, without commas.
std::string reasonFor(const std::string& token) {
  const auto ignored = ignoredFilters(token);
  EXPECT_EQ(ignored.size(), 1U) << token;
  std::string reason = ignored.at(0).reason;
  std::ranges::replace(reason, ',', ' ');
  return reason;
}

TEST(QueryAdvice, ReasonsOfferOnlyWhatCanBeRead) {
  const std::string kinds = reasonFor("KIND:vid");
  std::set<std::string_view> ids;
  for (const std::string_view name : tokensOf(std::string_view(kinds).substr(kinds.find("are ") + 4))) {
    ASSERT_TRUE(TokenQuery::kindNamed(name)) << name;
    ids.insert(*TokenQuery::kindNamed(name));
  }
  EXPECT_EQ(ids.size(), 10U);
  const TokenQuery sizes = TokenQuery::parse(reasonFor("size:>=1gb"), 0);
  EXPECT_TRUE(sizes.minSize && sizes.maxSize);
  const TokenQuery ages = TokenQuery::parse(reasonFor("age:12h"), 0);
  EXPECT_TRUE(ages.olderThan && ages.newerThan);
  EXPECT_THAT(ignoredFilters("kind:video size:1k foo:bar kind: in:x x"), IsEmpty());
  EXPECT_EQ(ignoredFilters("size:big x age:0d"),
            (std::vector<IgnoredFilter>{{"size:big", ignoredFilters("size:big")[0].reason},
                                        {"age:0d", ignoredFilters("age:12h")[0].reason}}));
}

TEST(QueryAdvice, HintsNameWhatToTypeInstead) {
  const std::vector<std::pair<std::string, std::string>> hints{{"kind: video", "write kind:video "},
                                                               {"size:", "write size:VALUE "},
                                                               {"ext:mp4", "try .mp4"},
                                                               {"Folder:x", "try in:x"},
                                                               {"modified:2023", "try age:>2y "},
                                                               {"foo:bar", "filters are kind: "},
                                                               {"*.mp4", "try .mp4"},
                                                               {"a*b*", "try a b"},
                                                               {"in:foo*", "try in:foo"},
                                                               {"size>1gb", "try size:>1gb"},
                                                               {"kind=video", "try kind:video"},
                                                               {"-kind:video", "cannot be excluded"}};
  for (const auto& [text, hint] : hints) {
    EXPECT_THAT(searchHints(text), ElementsAre(HasSubstr(hint))) << text;
  }
  EXPECT_THAT(searchHints("a-b 12:30 - kind:video size:big \xff"), IsEmpty());
  EXPECT_THAT(searchHints("ext:\x1b*"), ElementsAre(HasSubstr("␛")));
}

}  // namespace
}  // namespace quon::test
