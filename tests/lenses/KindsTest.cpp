// Kinds of files by their names, and their totals below a folder.
#include <array>
#include <functional>
#include <gtest/gtest.h>
#include <map>

#include "PathTree.h"
#include "base/Path.h"
#include "base/Text.h"
#include "lenses/Kinds.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

TEST(Kinds, FollowTheLastEndingElseTheWholeName) {
  const std::map<std::string_view, std::vector<std::string_view>> expected{
      {"code", {"Makefile", ".gitignore", ".Env", ".bashrc", "x.lock", "a.ts"}},
      {"images", {"a.PNG"}},
      {"archives", {"archive.tar.gz"}},
      {"docs", {"a.png.txt", "README", "COPYING", "ChangeLog"}},
      {"media", {"a.m\xe2\x84\xaav"}},  // with the Kelvin sign
      {"disk", {"vm.QCow2", "x.sparsebundle"}},
      {"data", {"a.npz"}},
      {"other",
       {"makefile.am", "x.bashrc", ".DS_Store", "foo.", ".png", "Dockerfile.dev", "", ".", "png",
        "a.sparsebundles", "a.\xff", std::string_view("a.zip\0", 6)}}};
  for (const auto& [id, names] : expected) {
    for (const std::string_view name : names) EXPECT_EQ(Kinds::of(name).id, id) << name;
  }
}

/// As the rules read: one list after the other.
const FileKind& plainlyOf(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot != std::string::npos && dot != 0) {
    const std::string extension = lowerCase(name.substr(dot + 1));
    for (const Kinds::Category& category : Kinds::all()) {
      if (category.extensions.contains(extension)) return category.kind;
    }
  }
  const auto named = Kinds::namedFiles().find(lowerCase(name));
  return named == Kinds::namedFiles().end() ? Kinds::other() : *named->second;
}

/// Known words, whole, cut or lengthened, in any case, between dots and odd bytes.
std::string anyName(std::mt19937_64& random) {
  static const std::vector<std::string_view> kWords = [] {
    std::vector<std::string_view> words{
        ".", ".", "a", "\xe2\x84\xaa", "\xc4\xb0", "\xff", std::string_view("\0", 1)};
    for (const Kinds::Category& category : Kinds::all())
      words.insert(words.end(), category.extensions.begin(), category.extensions.end());
    for (const auto& [name, kind] : Kinds::namedFiles()) words.insert(words.end(), 3, name);
    return words;
  }();
  std::string name = random() % 2 == 0 ? "f." : "";
  do name += kWords[random() % (random() % 3 == 0 ? 7 : kWords.size())];
  while (random() % 4 == 0);
  if (random() % 8 == 0) name.pop_back();
  for (char& letter : name) {
    if (random() % 4 == 0 && letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
  // The Kelvin sign for a k: another way to write the same word.
  const std::size_t k = name.find_first_of("kK");
  if (k != std::string::npos && random() % 2 == 0) name.replace(k, 1, "\xe2\x84\xaa");
  return name;
}

TEST(Kinds, AreThoseOfASearchThroughEveryList) {
  std::mt19937_64 random(randomSeed());
  std::map<std::string_view, int> kinds;
  for (int round = 0; round < 30'000; ++round) {
    const std::string name = anyName(random);
    ASSERT_EQ(Kinds::of(name), plainlyOf(name)) << testing::PrintToString(name);
    ++kinds[Kinds::of(name).id];
  }
  EXPECT_EQ(kinds.size(), 10U);
}

Kinds::Aggregate totals(const RefPtr<DirNode>& scope, Metric metric, const KindOverrides& overrides = {}) {
  return *Kinds::aggregate(scope, "/r", metric, overrides, [] { return false; });
}

struct Sums {
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t count = 0;
  bool operator==(const Sums&) const = default;
};

void addRecursively(const DirNode& folder, const KindOverrides& overrides,
                    std::map<std::string_view, Sums>& sums) {
  for (const FileEntry& file : folder.keptFiles) {
    std::string_view id = plainlyOf(file.name).id;
    const auto found = overrides.find(joinPath(folder.path("/r"), file.name));
    if (id == "other" && found != overrides.end()) id = found->second->id;
    Sums& sum = sums[id];
    sum = {sum.logical + file.logical, sum.physical + file.physical, sum.count + 1};
  }
  for (const auto& child : folder.subdirs) addRecursively(*child, overrides, sums);
}

TEST(KindTotals, AreThoseOfARecursiveSum) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 40; ++round) {
    PathTree tree = PathTree::random(random, 60, {"a", "b"});
    KindOverrides overrides;
    std::function<void(DirNode&)> fill = [&](DirNode& folder) {
      for (std::uint64_t at = random() % 6; at > 0; --at) {
        tree.file(folder, {anyName(random), random() % 100, random() % 100, 0});
        if (random() % 3 == 0) {
          overrides[joinPath(folder.path("/r"), folder.keptFiles.back().name)] =
              &Kinds::all()[random() % 9].kind;
        }
      }
      for (const auto& child : folder.subdirs) fill(*child);
    };
    fill(tree.sample.root());
    const RefPtr<DirNode> root = tree.rolledUp();
    std::map<std::string_view, Sums> expected;
    addRecursively(*root, overrides, expected);
    for (const Metric metric : {Metric::logical, Metric::physical}) {
      const auto [rows, small] = totals(root, metric, overrides);
      std::map<std::string_view, Sums> found;
      std::uint64_t rest = metric == Metric::logical ? root->totalLogical : root->totalPhysical;
      std::uint64_t before = UINT64_MAX;
      for (const Kinds::Row& row : rows) {
        EXPECT_TRUE(found.try_emplace(row.kind.id, Sums{row.logical, row.physical, row.count}).second);
        const std::uint64_t size = metric == Metric::logical ? row.logical : row.physical;
        EXPECT_LE(size, before);
        before = size;
        rest -= size;
      }
      EXPECT_EQ(found, expected);
      EXPECT_EQ(small, rest);
    }
  }
}

TEST(KindTotals, TheRestIsNeverBelowZero) {
  PathTree tree;
  tree.folder("d", 70);
  const RefPtr<DirNode> root = tree.rolledUp();
  const auto [rows, small] = totals(root, Metric::physical);
  EXPECT_TRUE(rows.empty());
  EXPECT_EQ(small, 140U);
  root->keptFiles.push_back({"a.zip", 1000, 1000, 0});  // patched, its totals not yet
  EXPECT_EQ(totals(root, Metric::physical).small, 0U);
  root->keptFiles.push_back({"b.zip", UINT64_MAX, 0, 0});
  EXPECT_DEATH((void)totals(root, Metric::physical), "overflow");
}

TEST(KindTotals, CountAnyDepth) {
  PathTree tree = PathTree::chain("d", 100'000);
  EXPECT_EQ(totals(tree.rolledUp(), Metric::physical).rows.at(0).physical, 7U);
}

}  // namespace
}  // namespace quon::test
