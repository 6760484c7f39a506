// A real, hostile tree is scanned into an index. What loads is compared with the tree of the scan, and the
// file itself with a second walk with lstat alone.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sys/stat.h>

#include "base/Sha256.h"
#include "scan/DirNode.h"
#include "store/FolderScan.h"
#include "store/ScanStore.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/ReferenceTree.h"
#include "support/SampleTree.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

void expectRowsOf(const ReferenceTree& tree, const std::string& url) {
  RawIndex index(url);
  const std::map<std::string, std::string> paths = folderPaths(index, tree.root);
  ASSERT_EQ(paths.size(), tree.folders.size());
  for (const auto& row : index.rows("SELECT id, mtime, error FROM dirs")) {
    const std::string& path = paths.at(row[0]);
    ASSERT_TRUE(tree.folders.contains(path)) << path;
    EXPECT_EQ(row[1] + " " + row[2], std::to_string(tree.folders.at(path).mtime) + " 0") << path;
  }

  std::map<std::uint64_t, std::set<std::string>> names;  // of files with several, by inode number
  std::map<std::uint64_t, int> timesCounted;
  std::set<std::string> counted;
  for (const auto& row : index.rows("SELECT fileid, dir, name, counted FROM links")) {
    const std::uint64_t inode = std::stoull(row[0]);
    const std::string path = paths.at(row[1]) + "/" + row[2];
    names[inode].insert(path);
    if (row[3] != "1") continue;
    counted.insert(path);
    EXPECT_EQ(++timesCounted[inode], 1) << path;
  }
  std::map<std::uint64_t, std::set<std::string>> expectedNames;
  std::multiset<std::string> expectedFiles;
  for (const auto& [path, folder] : tree.folders) {
    for (const auto& [entry, identity, linked] : folder.files) {
      const std::string full = path + "/" + entry.name;
      if (linked) expectedNames[identity.second].insert(full);
      if (linked && !counted.contains(full)) continue;
      expectedFiles.insert(full + " " + std::to_string(entry.logical) + " " + std::to_string(entry.physical) +
                           " " + std::to_string(entry.mtime));
    }
  }
  EXPECT_EQ(names, expectedNames);
  EXPECT_EQ(timesCounted.size(), expectedNames.size());
  std::multiset<std::string> files;
  for (const auto& row : index.rows("SELECT dir, name, logical, physical, mtime FROM files")) {
    files.insert(paths.at(row[0]) + "/" + row[1] + " " + row[2] + " " + row[3] + " " + row[4]);
  }
  EXPECT_EQ(files, expectedFiles);
}

TEST(RoundTrip, AHostileTreeComesBackAsItWasScanned) {
  std::mt19937_64 random(randomSeed());
  const TempFolder top;
  const std::string root = top.folder("tree");
  makeRandomTree(root, random);
  FolderScan scan(linuxPlatform(),
                  {.root = RootPath(root), .threads = 4, .indexDirectory = top.at("own/data/index")});
  const FolderScan::Outcome outcome = scan.run();
  ASSERT_EQ(outcome.notSaved, "");
  ASSERT_EQ(outcome.index, ScanStore::canonicalURL(top.at("own/data/index"), RootPath(root)));

  const Loaded loaded = ScanStore::load(outcome.index, RootPath(root));
  EXPECT_EQ(differences(*loaded.result.root, *outcome.result.root), "");
  EXPECT_EQ(inconsistency(loaded, RootPath(root)), "");
  EXPECT_EQ(loaded.result.topFiles, outcome.result.topFiles);
  EXPECT_FALSE(loaded.result.topFiles.empty());
  EXPECT_EQ(loaded.result.errorCount, 0U);
  EXPECT_EQ(loaded.result.hardlinksDeduped, outcome.result.hardlinksDeduped);
  EXPECT_EQ(loaded.scanElapsedMs, outcome.elapsedMs);
  EXPECT_NEAR(loaded.scannedAt, outcome.scannedAt, 60);
  EXPECT_TRUE(loaded.hasLinkRegistry);

  const ReferenceTree tree = ReferenceTree::of(root);
  expectRowsOf(tree, outcome.index);
  for (const auto& [path, folder] : tree.folders) EXPECT_FALSE(loaded.idByPath.find(path + "\xff"));
  EXPECT_FALSE(loaded.idByPath.find(top.path));
  EXPECT_FALSE(loaded.idByPath.find(""));

  struct stat found {};
  ASSERT_EQ(::stat(outcome.index.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777U, 0600U);
  for (const char* folder : {"own", "own/data", "own/data/index"}) {
    ASSERT_EQ(::stat(top.at(folder).c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777U, 0700U) << folder;
  }
}

TEST(Schema, IsTheOneThatOtherProgramsRead) {
  const TempFolder top;
  SampleTree tree;
  DirNode& below = tree.folder("a");
  DirNode& deepest = tree.folder("b", &below);
  const std::string url = ScanStore::canonicalURL(top.path, tree.path);
  ScanStore store(linuxPlatform(), url);
  store.recordLink(~0ULL, deepest, "far", true);  // before any folder has its row
  tree.file(deepest, {"far", 5, 512, -1});
  tree.record(store);
  WalkResult figures;
  figures.root = tree.shared();
  figures.topFiles = {{"/sample/a/b/\xff\"", 1ULL << 63U, 0, -5}};
  figures.errorCount = 3;
  figures.errorSamples = {"/sample/\xfe"};
  figures.hardlinksDeduped = 2;
  figures.skippedProtected = {"/sample/skipped"};
  store.finish(tree.path, 42, figures, 1ULL << 63U, 4294967295U);

  RawIndex index(url);
  EXPECT_EQ(
      index.value(
          "SELECT group_concat(coalesce(sql, name), ';') FROM (SELECT * FROM sqlite_schema ORDER BY rowid)"),
      "CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL);sqlite_autoindex_meta_1;"
      "CREATE TABLE dirs (\n  id INTEGER PRIMARY KEY,\n  parent INTEGER,\n  name TEXT NOT NULL,\n"
      "  mtime INTEGER NOT NULL,\n  error INTEGER NOT NULL DEFAULT 0\n);"
      "CREATE TABLE files (\n  dir INTEGER NOT NULL,\n  name TEXT NOT NULL,\n  logical INTEGER NOT NULL,\n"
      "  physical INTEGER NOT NULL,\n  mtime INTEGER NOT NULL\n);"
      "CREATE TABLE links (\n  fileid INTEGER NOT NULL,\n  dir INTEGER NOT NULL,\n  name TEXT NOT NULL,\n"
      "  counted INTEGER NOT NULL,\n  PRIMARY KEY (fileid, dir, name)\n);sqlite_autoindex_links_1;"
      "CREATE INDEX idx_links_dir ON links(dir);CREATE INDEX idx_files_dir ON files(dir);"
      "CREATE INDEX idx_dirs_parent_name ON dirs(parent, name)");
  EXPECT_EQ(index.value("PRAGMA integrity_check"), "ok");
  EXPECT_EQ(
      index.value("SELECT group_concat(key) FROM (SELECT key FROM meta ORDER BY rowid)"),
      "format,root,scannedAt,elapsedMs,errorCount,errorSamples,hardlinksDeduped,linksVersion,"
      "skippedProtected,topFiles,lastEventId,rootDev,mountPoint,linksCompleteFrom,totals,revision,complete");
  EXPECT_EQ(index.rows("SELECT d.name, p.name, l.fileid, l.counted FROM links l JOIN dirs d ON l.dir = d.id "
                       "JOIN dirs p ON d.parent = p.id"),
            (std::vector<RawIndex::Row>{{"b", "a", "-1", "1"}}));
  EXPECT_EQ(folderPaths(index, tree.path.path()).size(), 3U);

  const Loaded loaded = ScanStore::load(url, tree.path, 1);
  EXPECT_EQ(loaded.result.topFiles, figures.topFiles);
  EXPECT_EQ(loaded.result.errorCount, 3U);
  EXPECT_EQ(loaded.result.errorSamples, figures.errorSamples);
  EXPECT_EQ(loaded.result.hardlinksDeduped, 2U);
  EXPECT_EQ(loaded.result.skippedProtected, figures.skippedProtected);
  EXPECT_EQ(loaded.scanElapsedMs, 42);
  EXPECT_EQ(loaded.lastEventId, 1ULL << 63U);
  EXPECT_EQ(loaded.rootDev, 4294967295U);
}

TEST(IndexName, DiffersBetweenRootsAndFitsTheFileSystem) {
  const auto urlOf = [](const char* root) { return ScanStore::canonicalURL("/i", RootPath(root)); };
  EXPECT_EQ(urlOf("/"), "/i/root-8a5edab282632443219e051e4ade2d1d5bbc671c781051bf1437897cbdfea0f1.sqlite");
  EXPECT_EQ(urlOf("/home/x"), "/i/x-" + sha256Hex("/home/x") + ".sqlite");
  const TempFolder top;
  const std::string prefix = "/p/" + std::string(254, 'n');
  std::set<std::string> urls;
  for (const std::string& root :
       {std::string("/"), prefix + "1", prefix + "2", std::string("/p/\xff\xfe\x80"),
        "/p/" + std::string(255, '\xc3'), std::string("/p/a?mode=ro#x%00")}) {
    const std::string url = SampleTree(root).save(top.path);
    EXPECT_TRUE(urls.insert(url).second);
    EXPECT_EQ(ScanStore::load(url, RootPath(root), 0).result.root->name, root);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(top.path), fs::directory_iterator()), 6);
}

}  // namespace
}  // namespace quon::test
