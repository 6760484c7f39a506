// Chips: which tokens become one, and how they move between the text and the pills.
#include <gtest/gtest.h>
#include <string>
#include <tuple>
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

TEST(SearchChip, EveryFilterThatCanBeReadHasOne) {
  EXPECT_EQ(chipOf("Type:Video"), (SearchChip{"kind:video", "<media>", Category::kind, 4}));
  EXPECT_EQ(chipOf("kind:misc"), (SearchChip{"kind:misc", "<other>", Category::kind, std::nullopt}));
  const std::vector<std::tuple<const char*, SearchChip>> chips{
      {"size:1GB", {"size:1gb", "> 1.0 GB", Category::size, {}}},
      {"size:<500mb", {"size:<500mb", "< 500.0 MB", Category::size, {}}},
      {"In:Library", {"in:library", "in library", Category::path, {}}},
      {"path:a:B", {"path:a:b", "in a:b", Category::path, {}}},
      {"NAME:X", {"name:x", "name x", Category::name, {}}},
      {"age:>2Y", {"age:>2y", "older than 2y", Category::age, {}}},
      {"age:2y", {"age:2y", "older than 2y", Category::age, {}}},
      {"age:<1w", {"age:<1w", "newer than 1w", Category::age, {}}},
      {"in:a\u202e\xff", {"in:a\u202e\xff", "in a\ufffd\ufffd", Category::path, {}}}};
  for (const auto& [token, chip] : chips) EXPECT_EQ(chipOf(token), chip) << token;
  for (const char* token :
       {"", "x", "foo:bar", "in:", "kind:vid", "size:big", "size:-1gb", "age:0d", "age:12h"}) {
    EXPECT_EQ(chipOf(token), std::nullopt) << token;
  }
}

TEST(AbsorbChips, ATokenStillBeingTypedStaysText) {
  EXPECT_EQ(absorbed({"kind:video", {}}).text, "kind:video");
  EXPECT_TRUE(absorbed({"kind:video", {}}).chips.empty());
  EXPECT_EQ(rawsOf(absorbed({"kind:video ", {}})), (Texts{"kind:video"}));
  EXPECT_EQ(rawsOf(absorbed({"kind:video\u3000", {}})), (Texts{"kind:video"}));
  EXPECT_EQ(rawsOf(absorbed({"kind:video", {}}, true)), (Texts{"kind:video"}));
  EXPECT_EQ(absorbed({"kind:vid ", {}}, true).text, "kind:vid ");
}

TEST(AbsorbChips, WhatIsLeftIsJoinedBySingleSpacesAndAChipIsThereOnce) {
  const SearchField field = absorbed({"  Foo  size:1k\tbar IN:x  in:X in:y", {*chipOf("in:x")}});
  EXPECT_EQ(field.text, "Foo bar in:y");
  EXPECT_EQ(rawsOf(field), (Texts{"in:x", "size:1k"}));
  EXPECT_EQ(absorbed({"size:1k ", {}}).text, "");
  EXPECT_EQ(absorbed({" foo ", {}}).text, " foo ") << "the space before the next word";
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
