#include <atomic>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Reference.h"
#include "platform/Threads.h"
#include "scan/DirListing.h"
#include "support/SampleTree.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// The number that a shell command prints.
std::uint64_t numberFrom(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), &::pclose);
  unsigned long long number = 0;
  EXPECT_EQ(std::fscanf(pipe.get(), "%llu", &number), 1) << command;
  return number;
}

class RandomTree : public testing::Test {
 protected:
  RandomTree() {
    std::mt19937_64 random(randomSeed());
    makeRandomTree(temp.path, random);
    tree = ReferenceTree::of(temp.path);
    EXPECT_GT(tree.folders.size(), 30U);
  }
  const TempFolder temp;
  ReferenceTree tree;
};

TEST_F(RandomTree, IsWalkedAsAPlainWalkFindsIt) {
  for (const unsigned threads : {1U, 4U, 16U}) {
    SCOPED_TRACE(threads);
    (void)expectWalkMatches(tree, optionsFor(temp.path, {.minKeep = 1 << 20, .topN = 1000}), threads);
    (void)expectWalkMatches(tree, optionsFor(temp.path, {.minKeep = 1, .topN = 25}), threads);
    (void)expectWalkMatches(tree, optionsFor(temp.path, {.minKeep = 0, .topN = 0}), threads);
  }
}

TEST_F(RandomTree, HasTheTotalsOfDuAndFind) {
  const RefPtr<DirNode> root = expectWalkMatches(tree, optionsFor(temp.path), 4);
  const auto du = [&](const std::string& how) {
    return numberFrom("du -sx --block-size=1 " + how + " " + temp.path);
  };
  const auto ofFolders = [&](const std::string& what) {
    return numberFrom("find " + temp.path + " -xdev -type d -printf '" + what +
                      "\n' | awk '{ sum += $1 } END { printf \"%d\", sum }'");
  };
  EXPECT_EQ(root->totalLogical, du("--apparent-size") - ofFolders("%s"));
  EXPECT_EQ(root->totalPhysical, du("") - 512 * ofFolders("%b"));
  EXPECT_EQ(root->totalDirs + 1, ofFolders("1"));
}

TEST_F(RandomTree, IsListedFolderByFolderAsAPlainWalkFindsIt) {
  std::size_t links = 0;
  for (const auto& [path, folder] : tree.folders) {
    const DirListing listing = DirListing::read(linuxPlatform(), path, optionsFor(temp.path).rootDev, true);
    EXPECT_FALSE(listing.error);
    std::vector<FileEntry> files;
    std::map<std::string, std::uint64_t> linkIDs;
    for (const auto& [entry, identity, linked] : folder.files) {
      files.push_back(entry);
      if (linked) linkIDs[entry.name] = identity.second;
    }
    EXPECT_THAT(listing.files, testing::UnorderedElementsAreArray(files));
    EXPECT_EQ(listing.linkIDs, linkIDs);
    links += linkIDs.size();
    std::multimap<std::string, std::int64_t> found;
    for (const DirListing::Subdir& child : listing.subdirs)
      found.emplace(path + "/" + child.name, child.mtime);
    std::multimap<std::string, std::int64_t> children;
    for (const auto& [other, itsFolder] : tree.folders) {
      if (other != temp.path && other.substr(0, other.rfind('/')) == path)
        children.emplace(other, itsFolder.mtime);
    }
    EXPECT_EQ(found, children);
  }
  EXPECT_GT(links, 10U);
}

TEST(Walker, CountsEveryNameOfASymbolicLink) {
  const TempFolder temp;
  temp.file("a/one", 3000);
  temp.folder("b");
  std::filesystem::create_symlink("one", temp.at("a/link"));
  std::filesystem::create_hard_link(temp.at("a/link"), temp.at("b/link"));
  const auto root = expectWalkMatches(ReferenceTree::of(temp.path), optionsFor(temp.path), 2);
  EXPECT_EQ(root->totalLogical, 3000U + 2 * 3);
}

TEST(Walker, SkipsExactlyTheGivenFoldersAndReportsThem) {
  const TempFolder temp;
  std::vector<std::string> skipped;
  for (int number = 10; number < 60; ++number) {  // found in any order
    skipped.push_back(temp.at(std::to_string(number) + "/in"));
    temp.file(std::to_string(number) + "/in/x", 10);
  }
  for (const std::string file : {"10/x", "in/x", "file"}) temp.file(file, 10);
  std::filesystem::create_directory_symlink("10", temp.at("link"));
  std::set<std::string> given(skipped.begin(), skipped.end());
  for (const std::string other : {"missing/in", "file", "link", "10/i"}) given.insert(temp.at(other));
  Walker walker(linuxPlatform(), optionsFor(temp.path, {.skipPaths = given}), nullptr);
  const Walker::Result result = walk(walker, temp.path, 3);
  EXPECT_EQ(result.skippedProtected, skipped);
  EXPECT_EQ(result.root->totalDirs, 51U);
  EXPECT_EQ(result.root->totalLogical, 32U);  // 10/x, in/x, file and the link's own two bytes
}

TEST(Walker, TakesTheEmptyPathForTheFileSystemsRoot) {
  RecordingSink sink("");
  Walker walker(linuxPlatform(), optionsFor("/"), &sink);
  sink.onRecord = [&](const DirNode&) { walker.cancelRun(); };
  const Walker::Result result = walk(walker, "", 1);
  EXPECT_EQ(sink.folders.size(), 1U);
  ASSERT_FALSE(result.root->subdirs.empty());
  const std::string child = result.root->subdirs.front()->path("");
  EXPECT_TRUE(std::filesystem::is_directory(child) && child.rfind('/') == 0) << child;
}

TEST(Walker, CancelledStopsWithinTheFoldersBeingListed) {
  const TempFolder temp;
  for (int number = 0; number < 8000; ++number) {
    const std::string name = std::to_string(number % 8) + "/" + std::to_string(number);
    std::filesystem::create_hard_link(temp.file(name), temp.at(name + " again"));
  }
  for (const unsigned threads : {1U, 4U}) {
    RecordingSink sink(temp.path);
    Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
    sink.onLink = [&](const DirNode&) { walker.cancelRun(); };
    {
      const Walker::Result result = walk(walker, temp.path, threads);
      EXPECT_GE(result.root->totalFiles, 1U);
      EXPECT_LT(result.root->totalFiles, 1000U * threads);
      EXPECT_EQ(result.errorCount, 0U);
    }
    EXPECT_LE(sink.folders.size(), 1U + threads);
    const Progress::Snapshot progress = walker.progress->snapshot();  // when the tree is gone
    EXPECT_EQ(progress.dirs, sink.folders.size());
    EXPECT_TRUE(sink.folders.contains(progress.currentPath)) << progress.currentPath;
  }
}

/// Threads that are counted, all of whose time since the last question was spent as the test says.
class CountedThreads final : public ThreadService {
 public:
  explicit CountedThreads(bool wait) : waiting(wait) {}
  [[nodiscard]] std::unique_ptr<RunningThread> start(const std::string& name, std::size_t stackBytes,
                                                     std::function<void()> body) const override {
    started.fetch_add(1);
    started.notify_all();
    return linuxPlatform().threads.start(name, stackBytes, std::move(body));
  }
  [[nodiscard]] unsigned activeProcessors() const override { return 2; }
  [[nodiscard]] ThreadUse used() const override { return {.waits = waiting ? waits.fetch_add(1) : 0}; }

  mutable std::atomic<unsigned> started = 0;

 private:
  const bool waiting;
  mutable std::atomic<std::uint64_t> waits = 0;
};

TEST(Walker, AddsWorkersOnlyWhileTheyWaitAndNeverBeyondTheBound) {
  const TempFolder temp;
  for (int number = 0; number < 2000; ++number) temp.folder(std::to_string(number));
  for (const bool waiting : {true, false}) {
    const CountedThreads threads(waiting);
    const Platform& real = linuxPlatform();
    const Platform platform{real.directories, real.files, threads};
    RecordingSink sink(temp.path);
    Walker walker(platform, optionsFor(temp.path, {.mostThreads = 9}), &sink);
    sink.onRecord =
        [&](const DirNode&) {  // once all adjustments are made, their threads get the time to start
          if (!waiting || sink.folders.size() != 1900) return;
          for (unsigned now = threads.started; now < 9; now = threads.started) threads.started.wait(now);
        };
    EXPECT_EQ(walk(walker, temp.path, 2).root->totalDirs, 2000U);
    EXPECT_EQ(threads.started, waiting ? 9U : 2U);
  }
}

}  // namespace
}  // namespace quon::test
