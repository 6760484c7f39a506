#include "Reference.h"

#include <algorithm>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <set>

#include "platform/Files.h"

namespace quon::test {
namespace {

struct Figures {
  std::uint64_t logical = 0, physical = 0, files = 0, dirs = 0;
  std::int64_t newest = 0;
  void add(const FileEntry& file) {
    logical += file.logical;
    physical += file.physical;
    files += 1;
    newest = std::max(newest, file.mtime);
  }
  auto all() const { return std::array{logical, physical, files, dirs, static_cast<std::uint64_t>(newest)}; }
};

std::vector<FileEntry> sortedByName(std::vector<FileEntry> files) {
  std::ranges::sort(files, {}, &FileEntry::name);
  return files;
}

/// Every name of a multiply-linked file was sighted once, and of each such file one sighting was counted.
/// Returns the paths that were not.
std::set<std::string> expectSightings(const ReferenceTree& tree, const RecordingSink& sink) {
  std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> identities;
  for (const auto& [path, folder] : tree.folders) {
    for (const auto& file : folder.files) {
      if (file.linked) identities[path + "/" + file.entry.name] = file.identity;
    }
  }
  std::map<std::pair<std::uint64_t, std::uint64_t>, int> counted;
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::set<std::uint64_t>> identifiers;
  std::set<std::uint64_t> allIdentifiers;
  std::set<std::string> uncounted;
  EXPECT_EQ(sink.sightings.size(), identities.size());
  for (const RecordingSink::Sighting& sighting : sink.sightings) {
    const auto known = identities.find(sighting.path);
    if (known == identities.end()) {
      ADD_FAILURE() << "sighted twice, or no link: " << testing::PrintToString(sighting.path);
      continue;
    }
    counted[known->second] += sighting.counted ? 1 : 0;
    identifiers[known->second].insert(sighting.fileID);
    allIdentifiers.insert(sighting.fileID);
    if (!sighting.counted) uncounted.insert(sighting.path);
    identities.erase(known);
  }
  for (const auto& [identity, times] : counted) EXPECT_EQ(times, 1) << "inode " << identity.second;
  for (const auto& [identity, given] : identifiers)
    EXPECT_EQ(given.size(), 1U) << "inode " << identity.second;
  EXPECT_EQ(allIdentifiers.size(), counted.size()) << "two files share an identifier";
  return uncounted;
}

/// Without the recursion, the names and the sums of the code under test: each file is added to every folder
/// whose path precedes its own.
struct Expected {
  std::map<std::string, Figures> direct, total;
  std::map<std::string, std::vector<FileEntry>> files;
  std::vector<TopFile> kept;
};

Expected expectedFrom(const ReferenceTree& tree, const std::set<std::string>& uncounted,
                      std::uint64_t minKeep) {
  Expected expected;
  for (const auto& [path, folder] : tree.folders) {
    std::vector<std::string> chain{path};
    while (chain.back() != tree.root) chain.push_back(chain.back().substr(0, chain.back().rfind('/')));
    for (const std::string& above : chain) {
      Figures& total = expected.total[above];
      total.dirs += above == path ? 0 : 1;
      total.newest = std::max(total.newest, folder.mtime);
    }
    (void)expected.direct[path];
    (void)expected.files[path];
    for (const auto& [entry, identity, linked] : folder.files) {
      const std::string full = path + "/" + entry.name;
      if (uncounted.contains(full)) continue;
      expected.files[path].push_back(entry);
      expected.direct[path].add(entry);
      for (const std::string& above : chain) expected.total[above].add(entry);
      if (entry.logical >= minKeep)
        expected.kept.push_back({full, entry.logical, entry.physical, entry.mtime});
    }
  }
  return expected;
}

void expectNodes(const ReferenceTree& tree, const Expected& expected, const DirNode& root,
                 std::uint64_t minKeep) {
  std::size_t seen = 0;
  std::vector<std::pair<const DirNode*, std::string>> open{{&root, tree.root}};
  while (!open.empty()) {
    const auto [node, path] = open.back();
    open.pop_back();
    ++seen;
    SCOPED_TRACE(testing::PrintToString(path));
    ASSERT_TRUE(tree.folders.contains(path));
    EXPECT_EQ(node->path(tree.root), path);
    EXPECT_EQ(node->mtime, tree.folders.at(path).mtime);
    EXPECT_FALSE(node->error);
    const Figures direct{node->directLogical, node->directPhysical, node->directFiles, 0, node->directNewest};
    const Figures total{node->totalLogical, node->totalPhysical, node->totalFiles, node->totalDirs,
                        node->newest};
    EXPECT_EQ(direct.all(), expected.direct.at(path).all());
    EXPECT_EQ(total.all(), expected.total.at(path).all());
    std::vector<FileEntry> kept = expected.files.at(path);
    std::erase_if(kept, [&](const FileEntry& file) { return file.logical < minKeep; });
    EXPECT_EQ(sortedByName(node->keptFiles), sortedByName(kept));
    for (const auto& child : node->subdirs) {
      EXPECT_EQ(child->parent, node);
      open.emplace_back(child.get(), path + "/" + child->name);
    }
  }
  EXPECT_EQ(seen, tree.folders.size());
}

/// Which of several files of one size stay is open; their sizes, and that they are what they say, is not.
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

Walker::Options optionsFor(const std::string& root, Walker::Options rest) {
  std::error_code error;
  rest.rootDev = linuxPlatform().files.facts(root, error).value().device;
  return rest;
}

Walker::Result walk(Walker& walker, const std::string& root, unsigned threads) {
  const RefPtr<DirNode> node(new DirNode("a name that no path holds"));
  Walker::Result result = walker.run(root, node, threads);
  EXPECT_EQ(result.root, node);
  node->rollup();
  return result;
}

RefPtr<DirNode> expectWalkMatches(const ReferenceTree& tree, const Walker::Options& options,
                                  unsigned threads) {
  RecordingSink sink(tree.root);
  Walker walker(linuxPlatform(), options, &sink);
  sink.onRecord = [&](const DirNode&) {  // someone looks on while the workers go their ways
    const std::string path = walker.progress->snapshot().currentPath;
    EXPECT_TRUE(path.empty() || tree.folders.contains(path)) << path;
  };
  const Walker::Result result = walk(walker, tree.root, threads);

  const std::set<std::string> uncounted = expectSightings(tree, sink);
  const Expected expected = expectedFrom(tree, uncounted, options.minKeep);
  for (auto& [path, files] : sink.folders) files = sortedByName(files);
  std::map<std::string, std::vector<FileEntry>> wanted;
  for (const auto& [path, files] : expected.files) wanted[path] = sortedByName(files);
  EXPECT_TRUE(sink.folders == wanted) << "the sink was told other files";
  expectNodes(tree, expected, *result.root, options.minKeep);
  expectTopFiles(expected.kept, result.topFiles, options.topN);
  EXPECT_EQ(result.hardlinksDeduped, uncounted.size());
  EXPECT_EQ(result.errorCount, 0U);
  const Progress::Snapshot progress = walker.progress->snapshot();
  const Figures& whole = expected.total.at(tree.root);
  EXPECT_EQ((std::array{progress.dirs, progress.files, progress.logical, progress.errors}),
            (std::array{whole.dirs + 1, whole.files, whole.logical, std::uint64_t{0}}));
  EXPECT_TRUE(tree.folders.contains(progress.currentPath)) << progress.currentPath;
  return result.root;
}

}  // namespace quon::test
