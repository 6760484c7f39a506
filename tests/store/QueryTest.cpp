// Queries of an index, compared with a model in memory; and removing trashed items from it.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <system_error>

#include "base/Path.h"
#include "base/Text.h"
#include "database/Database.h"
#include "store/ScanStore.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

constexpr std::uint64_t kMost = (1ULL << 63U) - 1;  // 8 EiB - 1, the largest size of a file

struct ModelFile {
  std::string path;
  FileEntry entry;
};

/// A random tree whose names and sizes repeat.
struct RandomIndex {
  RandomIndex(std::mt19937_64& random, const RootPath& root) : tree(root.path()) {
    std::vector<DirNode*> folders{&tree.root()};
    for (int at = 0; at < 60; ++at) {
      folders.push_back(&tree.folder("d" + std::to_string(at), folders[random() % folders.size()]));
    }
    for (int at = 0; at < 2000; ++at) {
      DirNode* const folder = folders[random() % folders.size()];
      const FileEntry entry{"n" + std::to_string(random() % 900) + "\xff", random() % 300, random() % 8 * 512,
                            static_cast<std::int64_t>(random() % 100) - 50};
      const std::string path = joinPath(folder->path(root.prefix()), entry.name);
      if (!taken.insert(path).second) continue;
      tree.file(*folder, entry);
      files.push_back({path, entry});
    }
  }
  SampleTree tree;
  std::vector<ModelFile> files;
  std::set<std::string> taken;
};

TEST(Query, AgreesWithAModelInMemory) {
  std::mt19937_64 random(randomSeed());
  for (const RootPath& root : {RootPath("/sample"), RootPath("/")}) {
    const TempFolder top;
    const RandomIndex index(random, root);
    const std::string url = index.tree.save(top.path);

    std::map<std::string, RepeatedName> byName;
    std::map<std::uint64_t, int> sizes;
    for (const ModelFile& file : index.files) {
      RepeatedName& name = byName[file.entry.name];
      name = {file.entry.name, name.count + 1, name.logical + file.entry.logical,
              name.physical + file.entry.physical};
      ++sizes[file.entry.logical];
    }
    for (const NamesBy by : {NamesBy::physical, NamesBy::logical}) {
      const auto size = by == NamesBy::logical ? &RepeatedName::logical : &RepeatedName::physical;
      auto left = byName;
      for (const std::uint64_t least : {0ULL, 4096ULL, 9000ULL, 1ULL << 40U, ~0ULL}) {
        std::erase_if(left,
                      [&](const auto& each) { return each.second.count < 2 || each.second.*size < least; });
        const auto found = ScanStore::repeatedNames(url, 100000, least, {}, by);
        ASSERT_EQ(found.size(), left.size()) << least;
        for (std::size_t at = 0; at < found.size(); ++at) {
          EXPECT_TRUE(found[at] == left.at(found[at].name)) << displayText(found[at].name);
          EXPECT_LE(found[at].*size, found[at == 0 ? 0 : at - 1].*size);
        }
        EXPECT_EQ(ScanStore::repeatedNames(url, 3, least, {}, by).size(),
                  std::min<std::size_t>(3, found.size()));
      }
    }

    const std::string& name = index.files[random() % index.files.size()].entry.name;
    std::multiset<std::string> expected;
    for (const ModelFile& file : index.files) {
      if (file.entry.name == name) expected.insert(file.path + ":" + std::to_string(file.entry.physical));
    }
    std::multiset<std::string> found;
    std::uint64_t before = ~0ULL;
    for (const NamedFile& file : ScanStore::paths(name, url, root, 100000)) {
      found.insert(file.path + ":" + std::to_string(file.physical));
      EXPECT_LE(file.physical, before);
      before = file.physical;
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(ScanStore::paths(name, url, root, 1).size(), 1U);
    EXPECT_TRUE(ScanStore::paths("absent", url, root, 10).empty());

    for (const std::uint64_t least : {0ULL, 100ULL, 299ULL, 300ULL, ~0ULL}) {
      std::set<std::string> twins;
      for (const ModelFile& file : index.files) {
        if (file.entry.logical >= least && sizes[file.entry.logical] > 1) twins.insert(file.path);
      }
      std::set<std::string> candidates;
      for (const DupeFile& file : ScanStore::dupeCandidates(url, root, least)) candidates.insert(file.path);
      EXPECT_EQ(candidates, twins) << least;
    }
  }
}

TEST(Query, SizesBeyondSignedSumsStayExact) {
  const TempFolder top;
  SampleTree tree;
  DirNode& folder = tree.folder("d");
  tree.file(folder, {"large", kMost, kMost, 1});
  tree.file(folder, {"largest", kMost, kMost, 1});
  tree.file(tree.root(), {"large", 1, 1, 1});
  const std::string url = tree.save(top.path);
  const Loaded loaded = ScanStore::load(url, tree.path, kMost);
  EXPECT_EQ(loaded.result.root->totalLogical, ~0ULL);
  EXPECT_EQ(loaded.result.root->totalPhysical, ~0ULL);
  const auto names = ScanStore::repeatedNames(url, 10, 1ULL << 63U);
  ASSERT_EQ(names.size(), 1U);
  EXPECT_EQ(names[0].physical, kMost + 1);
}

TEST(Query, FindsPathsAtTheEndOfADeepChain) {
  constexpr int kDepth = 20000;
  const TempFolder top;
  SampleTree tree;
  DirNode* at = &tree.root();
  std::string deepest = tree.path.path();
  for (int depth = 0; depth < kDepth; ++depth) {
    if (depth % 1000 == 0) tree.file(*at, {"on the way", 99, 99, 0});
    at = &tree.folder("c", at);
    deepest += "/c";
  }
  for (int file = 0; file < 40; ++file) tree.file(*at, {"x" + std::to_string(file), 77, 77, 0});
  const std::string url = tree.save(top.path);
  const auto twins = ScanStore::dupeCandidates(url, tree.path, 77);
  EXPECT_EQ(twins.size(), 40U + kDepth / 1000);
  EXPECT_EQ(
      std::ranges::count_if(twins, [&](const DupeFile& file) { return file.path.starts_with(deepest); }), 40);
  const Loaded loaded = ScanStore::load(url, tree.path);
  EXPECT_TRUE(loaded.idByPath.find(deepest));
  EXPECT_FALSE(loaded.idByPath.find(deepest + "/c"));
  EXPECT_EQ(differences(*loaded.result.root, tree.root()), "");
}

TEST(Query, SortsNoNamesInFilesOutsideTheIndex) {
  const TempFolder top;
  Database database = Database::open(top.at("index"), Database::Mode::create);
  // More than SQLite sorts without a temporary file.
  database.exec(
      "CREATE TABLE files AS WITH RECURSIVE n(i) AS (VALUES(0) UNION ALL SELECT i + 1 FROM n WHERE i < 50000)"
      "SELECT hex(randomblob(50)) AS name FROM n");
  Statement sorted = database.prepare("SELECT name FROM files ORDER BY name");
  ASSERT_TRUE(sorted.step());
  for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closed;
    const std::string opened = std::filesystem::read_symlink(descriptor, closed);
    EXPECT_EQ(opened.find("(deleted)"), std::string::npos) << opened;
  }
}

/// All rows of an index with paths in place of ids.
std::multiset<std::string> contents(const std::string& url, const RootPath& root) {
  RawIndex index(url);
  const std::map<std::string, std::string> paths = folderPaths(index, root.prefix());
  std::multiset<std::string> all;
  for (const auto& [id, path] : paths) all.insert("dir " + path);
  for (const char* table : {"files", "links"}) {
    for (const auto& row : index.rows(std::string("SELECT dir, name FROM ") + table)) {
      all.insert(std::string(table) + " " + paths.at(row[0]) + "/" + row[1]);
    }
  }
  return all;
}

TEST(Removal, RemovesTheItemAndNothingElse) {
  std::mt19937_64 random(randomSeed());
  for (const RootPath& root : {RootPath("/sample"), RootPath("/")}) {
    const TempFolder top;
    const RandomIndex index(random, root);
    const std::string url = index.tree.save(top.path);
    {
      RawIndex raw(url);
      raw.exec(
          "INSERT INTO links SELECT rowid, dir, name, 1 FROM files WHERE rowid % 3 = 0;"
          "INSERT INTO links SELECT rowid, dir, name || 'second', 0 FROM files WHERE rowid % 3 = 0");
    }
    std::multiset<std::string> expected = contents(url, root);
    for (int round = 0; round < 30; ++round) {
      const auto drawn = std::next(expected.begin(), static_cast<std::ptrdiff_t>(random() % expected.size()));
      const std::string path = drawn->substr(drawn->find(' ') + 1);
      const bool isDir = drawn->starts_with("dir ");
      if (path == root.prefix()) continue;
      std::erase_if(expected, [&](const std::string& row) {
        const std::string other = row.substr(row.find(' ') + 1);
        return other == path || (isDir && other.starts_with(path + "/"));
      });
      ScanStore::remove(path, isDir, url, root);
      ASSERT_EQ(contents(url, root), expected) << path;
    }
    EXPECT_EQ(inconsistency(ScanStore::load(url, root, 0), root), "");
    EXPECT_EQ(RawIndex(url).value("PRAGMA integrity_check"), "ok");
  }
}

}  // namespace
}  // namespace quon::test
