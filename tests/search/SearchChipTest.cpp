// Chips: which tokens become one, and how they move between the text and the pills.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "search/TokenQuery.h"

namespace quon::test {
namespace {

using Category = SearchChip::Category;
using Texts = std::vector<std::string>;

constexpr auto kLabelOf = [](std::string_view id) {
  return KindLabel{"<" + std::string(id) + ">", id == "other" ? std::nullopt : std::optional(4)};
};

std::optional<SearchChip> chipOf(std::string_view token) {
  return TokenQuery::chip(token, kLabelOf);
}

Texts rawsOf(const SearchField& field) {
  Texts raws;
  for (const SearchChip& chip : field.chips) raws.push_back(chip.raw);
  return raws;
}

SearchField absorbed(SearchField field, bool includePartial = false) {
  return absorbChips(std::move(field), includePartial, kLabelOf);
}

TEST(SearchChip, EveryFilterHasOne) {
  EXPECT_EQ(chipOf("Type:Video"), (SearchChip{"kind:video", "<media>", Category::kind, 4}));
  EXPECT_EQ(chipOf("kind:misc"), (SearchChip{"kind:misc", "<other>", Category::kind, std::nullopt}));
  EXPECT_EQ(chipOf("size:1GB"), (SearchChip{"size:1gb", "> 1.0 GB", Category::size, std::nullopt}));
  EXPECT_EQ(chipOf("size:<500mb"), (SearchChip{"size:<500mb", "< 500.0 MB", Category::size, std::nullopt}));
  EXPECT_EQ(chipOf("In:Library"), (SearchChip{"in:library", "in library", Category::path, std::nullopt}));
  EXPECT_EQ(chipOf("path:a:B"), (SearchChip{"path:a:b", "in a:b", Category::path, std::nullopt}));
  EXPECT_EQ(chipOf("NAME:X"), (SearchChip{"name:x", "name x", Category::name, std::nullopt}));
  EXPECT_EQ(chipOf("age:>2Y"), (SearchChip{"age:>2y", "older than 2y", Category::age, std::nullopt}));
  EXPECT_EQ(chipOf("age:2y"), (SearchChip{"age:2y", "older than 2y", Category::age, std::nullopt}));
  EXPECT_EQ(chipOf("age:<1w"), (SearchChip{"age:<1w", "newer than 1w", Category::age, std::nullopt}));
}

TEST(SearchChip, NothingElseHasOne) {
  for (const char* token :
       {"", "x", "foo:bar", "in:", "kind:vid", "size:big", "size:-1gb", "age:0d", "age:12h"}) {
    EXPECT_EQ(chipOf(token), std::nullopt) << token;
  }
}

TEST(SearchChip, LabelsCannotDisturbWhatIsAroundThem) {
  EXPECT_EQ(chipOf("in:a\u202e\xff")->label, "in a\ufffd\ufffd");
  EXPECT_EQ(chipOf("in:a\u202e\xff")->raw, "in:a\u202e\xff");
}

TEST(AbsorbChips, ATokenStillBeingTypedStaysText) {
  EXPECT_EQ(absorbed({"kind:video", {}}).text, "kind:video");
  EXPECT_TRUE(absorbed({"kind:video", {}}).chips.empty());
  EXPECT_EQ(rawsOf(absorbed({"kind:video ", {}})), (Texts{"kind:video"}));
  EXPECT_EQ(rawsOf(absorbed({"kind:video\u3000", {}})), (Texts{"kind:video"}));
  EXPECT_EQ(rawsOf(absorbed({"kind:video", {}}, true)), (Texts{"kind:video"}));
  EXPECT_EQ(absorbed({"kind:vid ", {}}, true).text, "kind:vid ");
}

TEST(AbsorbChips, WhatIsLeftIsJoinedBySingleSpaces) {
  const SearchField field = absorbed({"  Foo  size:1k\tbar in:x  in:y", {}});
  EXPECT_EQ(field.text, "Foo bar in:y");
  EXPECT_EQ(rawsOf(field), (Texts{"size:1k", "in:x"}));
  EXPECT_EQ(absorbed({"size:1k ", {}}).text, "");
}

TEST(AbsorbChips, ATextWithoutFiltersKeepsTheSpaceBeforeTheNextWord) {
  EXPECT_EQ(absorbed({" foo ", {}}).text, " foo ");
}

TEST(AbsorbChips, AChipIsThereOnce) {
  const SearchField field = absorbed({"IN:x size:1k in:X ", {*chipOf("in:x")}});
  EXPECT_EQ(field.text, "");
  EXPECT_EQ(rawsOf(field), (Texts{"in:x", "size:1k"}));
}

TEST(SearchField, ChipsAreRemovedAndSearchedFor) {
  const SearchField field = absorbed({"a in:x size:1k age:<1d b", {}});
  EXPECT_EQ(effectiveQuery(field), "in:x size:1k age:<1d a b");
  const SearchField without = withoutChip(field, *chipOf("size:1k"));
  EXPECT_EQ(effectiveQuery(without), "in:x age:<1d a b");
  EXPECT_EQ(rawsOf(withoutChip(without, *chipOf("in:y"))), rawsOf(without));
  EXPECT_EQ(effectiveQuery({"", {*chipOf("in:x")}}), "in:x");
  EXPECT_EQ(effectiveQuery({}), "");
}

}  // namespace
}  // namespace quon::test
