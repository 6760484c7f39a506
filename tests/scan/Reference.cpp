#include "Reference.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "platform/Files.h"
#include "support/IndexComparison.h"
#include "support/SampleTree.h"

namespace quon::test {
namespace {

constexpr const char* kRootName = "a name that no path contains";

std::vector<FileEntry> sortedByName(std::vector<FileEntry> files) {
  std::ranges::sort(files, {}, &FileEntry::name);
  return files;
}

/// Every name of a multiply-linked file was sighted once, under an identifier that only this file has, and
/// one sighting of each such file was counted. Returns the paths of the others.
std::set<std::string> expectSightings(const ReferenceTree& tree, const RecordingSink& sink) {
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::set<std::string>> namesOfInode;
  for (const auto& [path, folder] : tree.folders) {
    for (const auto& [entry, identity, linked] : folder.files) {
      if (linked) namesOfInode[identity].insert(path + "/" + entry.name);
    }
  }
  std::map<std::uint64_t, std::set<std::string>> namesSighted;
  std::map<std::uint64_t, int> counted;
  std::set<std::string> uncounted;
  for (const auto& [path, fileID, isCounted] : sink.sightings) {
    EXPECT_TRUE(namesSighted[fileID].insert(path).second) << "sighted twice: " << path;
    counted[fileID] += isCounted ? 1 : 0;
    if (!isCounted) uncounted.insert(path);
  }
  for (const auto& [fileID, times] : counted) EXPECT_EQ(times, 1) << *namesSighted[fileID].begin();
  std::multiset<std::set<std::string>> expected;
  for (const auto& [inode, names] : namesOfInode) expected.insert(names);
  std::multiset<std::set<std::string>> sighted;
  for (const auto& [fileID, names] : namesSighted) sighted.insert(names);
  EXPECT_EQ(sighted, expected);
  return uncounted;
}

/// Made without the rolling up and the paths of the code under test: each file is added to every folder whose
/// path precedes its own.
struct Expected {
  std::map<std::string, RefPtr<DirNode>> nodes;
  std::map<std::string, std::vector<FileEntry>> files;
  std::vector<TopFile> kept;
};

Expected expectedFrom(const ReferenceTree& tree, const std::set<std::string>& uncounted,
                      std::uint64_t minKeep) {
  Expected expected;
  for (const auto& [path, folder] : tree.folders) {  // parents before their children
    const bool isRoot = path == tree.root;
    const RefPtr<DirNode> node(new DirNode(isRoot ? kRootName : path.substr(path.rfind('/') + 1)));
    expected.nodes[path] = node;
    std::vector<DirNode*> chain{node.get()};
    for (std::string above = path; above != tree.root;) {
      above.resize(above.rfind('/'));
      chain.push_back(expected.nodes.at(above).get());
      chain.back()->totalDirs += 1;
    }
    if (!isRoot) chain[1]->subdirs.push_back(node);
    node->mtime = folder.mtime;
    for (DirNode* above : chain) above->newest = std::max(above->newest, folder.mtime);
    (void)expected.files[path];
    for (const auto& [entry, identity, linked] : folder.files) {
      const std::string full = path + "/" + entry.name;
      if (uncounted.contains(full)) continue;
      expected.files[path].push_back(entry);
      node->directLogical += entry.logical;
      node->directPhysical += entry.physical;
      node->directFiles += 1;
      if (entry.name == "CACHEDIR.TAG") node->cacheTagged = true;
      node->directNewest = std::max(node->directNewest, entry.mtime);
      for (DirNode* above : chain) {
        above->totalLogical += entry.logical;
        above->totalPhysical += entry.physical;
        above->totalFiles += 1;
        above->newest = std::max(above->newest, entry.mtime);
      }
      if (entry.logical < minKeep) continue;
      node->keptFiles.push_back(entry);
      expected.kept.push_back({full, entry.logical, entry.physical, entry.mtime});
    }
  }
  return expected;
}

/// Which of several files of one size are kept is not fixed; their sizes and attributes are.
void expectTopFiles(std::vector<TopFile> kept, const std::vector<TopFile>& top, std::int64_t topN) {
  std::ranges::sort(kept, std::greater(), &TopFile::logical);
  ASSERT_EQ(top.size(), std::min(kept.size(), static_cast<std::size_t>(std::max<std::int64_t>(topN, 0))));
  std::set<std::string> paths;
  for (std::size_t at = 0; at < top.size(); ++at) {
    EXPECT_EQ(top[at].logical, kept[at].logical);
    EXPECT_THAT(kept, testing::Contains(top[at]));
    EXPECT_TRUE(paths.insert(top[at].path).second) << top[at].path;
  }
}

}  // namespace

void RecordingSink::record(const DirNode& node, FileBatch files) {
  std::vector<FileEntry> entries;
  std::uint64_t logical = 0;
  for (std::size_t index = 0; index < files.size(); ++index) {
    const FileBatch::File file = files[index];
    entries.push_back({std::string(file.name), file.logical, file.physical, file.mtime});
    logical += file.logical;
  }
  EXPECT_EQ(node.directLogical, logical);
  EXPECT_EQ(node.directFiles, entries.size());
  const std::lock_guard held(lock);
  EXPECT_TRUE(folders.emplace(node.path(root), std::move(entries)).second) << node.path(root);
  onRecord(node);
}

void RecordingSink::recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name,
                               bool counted) {
  const std::lock_guard held(lock);
  sightings.push_back({node.path(root) + "/" + std::string(name), fileID, counted});
  onLink(node);
}

Walker::Options optionsFor(const std::string& root, Walker::Options rest) {
  std::error_code error;
  rest.rootDev = linuxPlatform().files.facts(root, error).value().device;
  return rest;
}

Walker::Result walk(Walker& walker, const std::string& root, unsigned threads) {
  const RefPtr<DirNode> node(new DirNode(kRootName));
  Walker::Result result = walker.run(root, node, threads);
  EXPECT_EQ(result.root, node);
  node->rollup();
  return result;
}

RefPtr<DirNode> expectWalkMatches(const ReferenceTree& tree, const Walker::Options& options,
                                  unsigned threads) {
  RecordingSink sink(tree.root);
  Walker walker(linuxPlatform(), options, &sink);
  sink.onRecord = [&](const DirNode&) {  // progress is read while the workers run
    const std::string path = walker.progress->snapshot().currentPath;
    EXPECT_TRUE(path.empty() || tree.folders.contains(path)) << path;
  };
  const Walker::Result result = walk(walker, tree.root, threads);

  const std::set<std::string> uncounted = expectSightings(tree, sink);
  const Expected expected = expectedFrom(tree, uncounted, options.minKeep);
  for (auto& [path, files] : sink.folders) files = sortedByName(files);
  std::map<std::string, std::vector<FileEntry>> wanted;
  for (const auto& [path, files] : expected.files) wanted[path] = sortedByName(files);
  EXPECT_TRUE(sink.folders == wanted) << "the sink got other files";
  const DirNode& whole = *expected.nodes.at(tree.root);
  EXPECT_EQ(differences(*result.root, whole), "");
  expectTopFiles(expected.kept, result.topFiles, options.topN);
  EXPECT_EQ(result.hardlinksDeduped, uncounted.size());
  EXPECT_EQ(result.errorCount, 0U);
  const Progress::Snapshot progress = walker.progress->snapshot();
  EXPECT_EQ((std::array{progress.dirs, progress.files, progress.logical, progress.errors}),
            (std::array{whole.totalDirs + 1, whole.totalFiles, whole.totalLogical, std::uint64_t{0}}));
  EXPECT_TRUE(tree.folders.contains(progress.currentPath)) << progress.currentPath;
  return result.root;
}

}  // namespace quon::test
