// Searches of made-up trees: what matches, in which order, against a search of whole paths, and cancellation.
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/Path.h"
#include "search/FoldedText.h"
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
  const std::string path = folded(fullPath);
  const auto isIn = [&](const std::string& text) { return path.find(folded(text)) != std::string::npos; };
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

TEST(TreeSearch, FindsWhatASearchOfWholePathsFinds) {
  std::mt19937_64 random(randomSeed());
  const std::vector<std::string> pieces{"a",      "B",      "ab",   "\u00c9", "E\u0301", "\u0301",
                                        "\u0416", "\u4e2d", "\xff", "\xc3",   "x.",      " "};
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

TEST(TreeSearch, SearchesAChainOfAHundredThousandFolders) {
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

TEST(TreeSearch, ChecksForCancellationOftenAndStopsThere) {
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

}  // namespace
}  // namespace quon::test
