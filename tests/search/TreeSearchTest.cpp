// Searches of made-up trees: what matches, in which order, against a search of whole paths, and how they
// stop.
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/Path.h"
#include "base/Text.h"
#include "search/TreeSearch.h"
#include "support/SampleTree.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

using Ids = std::vector<std::string>;

constexpr std::int64_t kNow = 1700000000;
constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

constexpr auto kKindByEnding = [](const DirNode& /*folder*/, std::string_view name) -> std::string_view {
  if (name.ends_with(".mp4")) return "media";
  return name.ends_with(".md") ? "docs" : "other";
};

Ids idsOf(const std::vector<Entry>& rows) {
  Ids ids;
  for (const Entry& row : rows) ids.push_back(row.id);
  return ids;
}

struct Tree {
  SampleTree sample{"/Root"};

  DirNode& folder(const std::string& name, DirNode* parent = nullptr, std::int64_t mtime = 0) {
    return sample.folder(name, parent, mtime);
  }
  void file(DirNode& parent, const FileEntry& file) {
    sample.file(parent, file);
    parent.keptFiles.push_back(file);
  }
  SearchHits search(const TokenQuery& query, Metric metric = Metric::logical, std::size_t cap = kAll) {
    sample.root().rollup();
    return *quon::search(
        query, sample.shared(), "/Root", metric, kKindByEnding, [] { return false; }, cap);
  }
  Ids ids(std::string_view text, Metric metric = Metric::logical) {
    return idsOf(search(TokenQuery::parse(text, kNow), metric).rows);
  }
};

/// The rule itself, for one row: every text is looked for in the whole path.
bool matches(const TokenQuery& query, const std::string& fullPath, std::uint64_t size, std::int64_t mtime,
             std::optional<std::string_view> fileKind) {
  const std::string path = lowerCase(fullPath);
  const auto isIn = [&](const std::string& text) { return path.find(text) != std::string::npos; };
  if (query.kind && fileKind != query.kind) return false;
  if (query.minSize && size < *query.minSize) return false;
  if (query.maxSize && size > *query.maxSize) return false;
  if (query.olderThan && (mtime == 0 || mtime >= *query.olderThan)) return false;
  if (query.newerThan && mtime < *query.newerThan) return false;
  return std::ranges::all_of(query.terms, isIn) && std::ranges::all_of(query.pathTerms, isIn);
}

using Rows = std::vector<std::pair<std::uint64_t, std::string>>;  // size and id

void addExpected(const TokenQuery& query, const DirNode& node, const std::string& path, Metric metric,
                 Rows& rows) {
  const bool logical = metric == Metric::logical;
  for (const FileEntry& file : node.keptFiles) {
    const std::string own = path + "/" + file.name;
    const std::uint64_t size = logical ? file.logical : file.physical;
    if (matches(query, own, size, file.mtime, kKindByEnding(node, file.name)))
      rows.emplace_back(size, "f:" + own);
  }
  for (const RefPtr<DirNode>& child : node.subdirs) {
    const std::string own = path + "/" + child->name;
    const std::uint64_t size = logical ? child->totalLogical : child->totalPhysical;
    if (matches(query, own, size, child->mtime, std::nullopt)) rows.emplace_back(size, "d:" + own);
    addExpected(query, *child, own, metric, rows);
  }
}

TEST(TreeSearch, TermsAreFoundInNamesAndPaths) {
  Tree tree;
  DirNode& library = tree.folder("Library");
  DirNode& caches = tree.folder("Caches", &library);
  tree.folder("other");
  tree.file(library, {"README.md", 10, 20, 1});
  tree.file(caches, {"x", 1, 2, 1});
  EXPECT_EQ(tree.ids("Readme"), (Ids{"f:/Root/Library/README.md"}));
  const Ids inLibrary{"d:/Root/Library", "f:/Root/Library/README.md", "d:/Root/Library/Caches",
                      "f:/Root/Library/Caches/x"};
  EXPECT_EQ(tree.ids("library"), inLibrary);
  EXPECT_EQ(tree.ids("in:LIBRARY"), inLibrary);
  EXPECT_EQ(tree.ids("y/ca"), (Ids{"d:/Root/Library/Caches", "f:/Root/Library/Caches/x"}))
      << "across a slash";
  EXPECT_EQ(tree.ids("x library"), (Ids{"f:/Root/Library/Caches/x"}));
  EXPECT_EQ(tree.ids("root/lib"), inLibrary) << "the root's own path counts";
  EXPECT_EQ(tree.ids("root").size(), 5U);
  EXPECT_TRUE(tree.ids("libraryx").empty());
}

TEST(TreeSearch, CaseIsOfNoMatterInAnyScript) {
  Tree tree;
  tree.folder("\u00c9T\u00c9");
  tree.folder("bad \xff\u00c9t\u00e9\xc3");
  const Ids both{"d:/Root/\u00c9T\u00c9", "d:/Root/bad \xff\u00c9t\u00e9\xc3"};
  EXPECT_EQ(tree.ids("\u00e9t\u00e9"), both);
  EXPECT_EQ(tree.ids("\u00c9T\u00c9"), both);
  EXPECT_EQ(tree.ids("BAD"), (Ids{both[1]}));
}

TEST(TreeSearch, BoundsAreInclusiveAndInTheMetric) {
  Tree tree;
  DirNode& folder = tree.folder("d");
  tree.file(folder, {"f", 1024, 4096, 1});
  const Ids both{"d:/Root/d", "f:/Root/d/f"};
  EXPECT_EQ(tree.ids("size:1k size:<1k"), both);
  EXPECT_EQ(tree.ids("size:1025"), Ids());
  EXPECT_EQ(tree.ids("size:<1023"), Ids());
  EXPECT_EQ(tree.ids("size:1025", Metric::physical), both);
  EXPECT_EQ(tree.ids("size:<4095", Metric::physical), Ids());
}

TEST(TreeSearch, AnUnknownTimeIsNeitherOldNorNew) {
  constexpr std::int64_t kDay = 86400;
  Tree tree;
  tree.folder("unknown", nullptr, 0);
  tree.folder("before 1970", nullptr, -5);
  tree.folder("edge", nullptr, kNow - 730 * kDay);
  tree.folder("new", nullptr, kNow);
  EXPECT_EQ(tree.ids("age:2y"), (Ids{"d:/Root/before 1970"}));
  EXPECT_EQ(tree.ids("age:<2y"), (Ids{"d:/Root/edge", "d:/Root/new"}));
  EXPECT_EQ(tree.ids("age:0d").size(), 4U) << "not a filter";
}

TEST(TreeSearch, AKindExcludesFolders) {
  Tree tree;
  DirNode& folder = tree.folder("a.mp4");
  tree.file(folder, {"b.mp4", 5, 5, 1});
  tree.file(folder, {"c.md", 5, 5, 1});
  EXPECT_EQ(tree.ids("kind:video"), (Ids{"f:/Root/a.mp4/b.mp4"}));
  EXPECT_EQ(tree.ids("kind:docs mp4"), (Ids{"f:/Root/a.mp4/c.md"}));
}

TEST(TreeSearch, AskedForKindsOnlyWhereAllElseFits) {
  Tree tree;
  DirNode& folder = tree.folder("d");
  tree.file(folder, {"small.mp4", 5, 5, 1});
  tree.file(folder, {"large.mp4", 50, 5, 1});
  tree.sample.root().rollup();
  Ids asked;
  const auto kindOf = [&](const DirNode& node, std::string_view name) -> std::string_view {
    asked.push_back(node.name + "/" + std::string(name));
    return "code";  // what the file's contents say, perhaps
  };
  const auto search = [&](std::string_view text) {
    return quon::search(
               TokenQuery::parse(text, kNow), tree.sample.shared(), "", Metric::logical, kindOf,
               [] { return false; }, kAll)
        ->found;
  };
  EXPECT_EQ(search("kind:code size:6 d"), 1U);
  EXPECT_EQ(asked, (Ids{"d/large.mp4"}));
  EXPECT_EQ(search("mp4"), 2U);
  EXPECT_EQ(asked.size(), 1U);
}

TEST(TreeSearch, RowsCarryFullPathsFromAnyFolderAndRoot) {
  Tree tree;
  DirNode& a = tree.folder("a");
  DirNode& b = tree.folder("b", &a);
  tree.file(b, {"f", 7, 8, 9});
  tree.sample.root().rollup();
  const auto rowsBelow = [](DirNode& root, std::string_view rootPath) {
    return quon::search(
               TokenQuery::parse("size:0 a", kNow), RefPtr<DirNode>(&root), rootPath, Metric::logical,
               kKindByEnding, [] { return false; }, kAll)
        ->rows;
  };
  const auto rows = rowsBelow(a, "");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].id, "d:/a/b");
  EXPECT_TRUE(std::get<RefPtr<DirNode>>(rows[0].payload) == &b);
  EXPECT_EQ(rows[1].id, "f:/a/b/f");
  EXPECT_TRUE(std::get<Entry::File>(rows[1].payload).container == &b);
  EXPECT_EQ(rows[1].name, "f");
  EXPECT_EQ(rows[1].size(Metric::physical), 8U);
  EXPECT_EQ(rows[1].mtime(), 9);
  EXPECT_EQ(rowsBelow(b, "/home/u").at(0).id, "f:/home/u/a/b/f");
}

TEST(TreeSearch, FindsWhatASearchOfWholePathsFinds) {
  std::mt19937_64 random(randomSeed());
  const std::vector<std::string> pieces{"a",      "B",    "ab",   "\u00c9", "\u0416",
                                        "\u4e2d", "\xff", "\xc3", "x.",     " "};
  const std::vector<std::string> filters{"size:500", "size:<800", "kind:video", "kind:misc",
                                         "age:10d",  "age:<20d",  "in:B",       "name:a"};
  const auto nameOf = [&] {
    std::string name;
    for (std::size_t left = 1 + random() % 3; left > 0; --left) name += pieces[random() % pieces.size()];
    return name;
  };
  std::size_t hits = 0;
  for (int round = 0; round < 40; ++round) {
    Tree tree;
    std::vector<DirNode*> all{&tree.sample.root()};
    const auto mtimeOf = [&] {
      return random() % 4 == 0 ? 0 : kNow - static_cast<std::int64_t>(random() % 2600000);
    };
    for (int at = 0; at < 40; ++at)
      all.push_back(&tree.folder(nameOf(), all[random() % all.size()], mtimeOf()));
    for (int at = 0; at < 40; ++at)
      tree.file(*all[random() % all.size()],
                {nameOf() + (random() % 2 == 0 ? ".mp4" : ""), random() % 1000, random() % 1000, mtimeOf()});
    tree.sample.root().rollup();
    for (int query = 0; query < 25; ++query) {
      std::string text;
      for (std::size_t left = random() % 3; left > 0; --left)
        text += filters[random() % filters.size()] + " ";
      const std::string path =
          all[random() % all.size()]->path("/Root");  // with luck a search finds part of it
      const std::size_t begin = random() % path.size();
      if (random() % 2 == 0) text += path.substr(begin, 1 + random() % 6);
      const TokenQuery asked = TokenQuery::parse(text, kNow);
      const Metric metric = random() % 2 == 0 ? Metric::logical : Metric::physical;
      Rows expected;
      addExpected(asked, tree.sample.root(), "/Root", metric, expected);
      std::ranges::stable_sort(expected, std::greater<>(), &Rows::value_type::first);
      const SearchHits found = tree.search(asked, metric, random() % 3 == 0 ? random() % 12 : kAll);
      ASSERT_EQ(found.found, expected.size()) << text;
      for (std::size_t at = 0; at < found.rows.size(); ++at) {
        ASSERT_EQ(found.rows[at].id, expected[at].second) << text;
      }
      hits += found.rows.size();
    }
  }
  EXPECT_GT(hits, 1000U) << "the queries are too narrow to test anything";
}

TEST(TreeSearch, TheLargestAreShownAndEqualOnesInTheOrderOfTheTree) {
  Tree tree;
  Ids expected;
  for (int at = 0; at < 60; ++at) {
    const std::string name = "f" + std::to_string((at * 7) % 60);
    tree.file(tree.sample.root(), {name, 5, static_cast<std::uint64_t>(at), 1});
    expected.push_back("f:/Root/" + name);
  }
  EXPECT_EQ(tree.ids("f", Metric::logical), expected);
  std::ranges::reverse(expected);
  EXPECT_EQ(tree.ids("f", Metric::physical), expected);
  const SearchHits capped = tree.search(TokenQuery::parse("f", kNow), Metric::physical, 7);
  expected.resize(7);
  EXPECT_EQ(idsOf(capped.rows), expected);
  EXPECT_EQ(capped.found, 60U);
}

TEST(TreeSearch, AChainOfAHundredThousandFolders) {
  constexpr int kDepth = 100000;
  Tree tree;
  DirNode* at = nullptr;
  for (int depth = 0; depth < kDepth; ++depth) at = &tree.folder("a", at);
  DirNode& last = tree.folder("B", at);
  tree.file(last, {"f.mp4", 3, 3, 1});
  // Nearly matched by the whole chain: found at its end alone.
  std::string text = "kind:video name:";
  for (int depth = 0; depth < 1000; ++depth) text += "a/";
  EXPECT_EQ(tree.ids(text + "b").size(), 1U);
  EXPECT_EQ(tree.ids("b/f").size(), 1U);
  EXPECT_EQ(tree.search(TokenQuery::parse("a", kNow), Metric::logical, 2).rows.at(1).id, "d:/Root/a/a");
}

TEST(TreeSearch, AsksOftenAndStopsWhereItIsToldTo) {
  constexpr int kFolders = 20000;
  Tree tree;
  for (int at = 0; at < kFolders; ++at) tree.folder("d" + std::to_string(at));
  for (int at = 0; at < kFolders; ++at) tree.file(tree.sample.root(), {"f" + std::to_string(at), 1, 1, 1});
  tree.sample.root().rollup();
  const auto asksOf = [&](std::string_view text, int last) {
    int asks = 0;
    const auto rows = quon::search(
        TokenQuery::parse(text, kNow), tree.sample.shared(), "", Metric::logical, kKindByEnding,
        [&] { return ++asks == last; }, kAll);
    EXPECT_EQ(rows.has_value(), last < 0) << text;
    return asks;
  };
  EXPECT_GE(asksOf("nothing", -1), 2 * kFolders / 1024);
  const int asksForAll = asksOf("size:0", -1);
  EXPECT_GE(asksForAll, 4 * kFolders / 1024) << "making rows counts as well";
  for (const int last : {1, 2, 30, asksForAll}) EXPECT_EQ(asksOf("size:0", last), last);
}

TEST(TreeSearch, ACancelledSearchOfNothingHasNoResult) {
  Tree tree;
  EXPECT_FALSE(search(
      TokenQuery(), tree.sample.shared(), "", Metric::logical, kKindByEnding, [] { return true; }, kAll));
}

}  // namespace
}  // namespace quon::test
