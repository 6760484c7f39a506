#include <cstdio>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "Reference.h"
#include "platform/Files.h"
#include "scan/DirListing.h"
#include "support/SampleTree.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// What a shell command prints.
std::string outputOf(const std::string& command) {
  FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string text;
  for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) text += static_cast<char>(byte);
  EXPECT_EQ(::pclose(pipe), 0) << command;
  return text;
}

std::uint64_t sumOf(const std::string& numbers) {
  std::istringstream stream(numbers);
  std::uint64_t sum = 0;
  for (std::uint64_t number = 0; stream >> number;) sum += number;
  return sum;
}

TEST(Walker, FindsOfARandomTreeWhatAPlainWalkFinds) {
  std::mt19937_64 random(randomSeed());
  const TempFolder temp;
  makeRandomTree(temp.path, random);
  const ReferenceTree tree = ReferenceTree::of(temp.path);
  ASSERT_GT(tree.folders.size(), 30U);
  for (const unsigned threads : {1U, 4U, 16U}) {
    SCOPED_TRACE(threads);
    (void)expectWalkMatches(tree, optionsFor(temp.path, {.minKeep = 1 << 20, .topN = 1000}), threads);
    (void)expectWalkMatches(tree, optionsFor(temp.path, {.minKeep = 1, .topN = 25}), threads);
    (void)expectWalkMatches(tree, optionsFor(temp.path, {.minKeep = 0, .topN = 0}), threads);
  }
}

TEST(Walker, AgreesWithTheSystemsOwnTools) {
  std::mt19937_64 random(randomSeed());
  const TempFolder temp;
  makeRandomTree(temp.path, random);
  const RefPtr<DirNode> root = expectWalkMatches(ReferenceTree::of(temp.path), optionsFor(temp.path), 4);
  const auto du = [&](const std::string& how) {
    return std::stoull(outputOf("du -sx --block-size=1 " + how + " " + temp.path));
  };
  const auto find = [&](const std::string& what) {
    return sumOf(outputOf("find " + temp.path + " -xdev " + what));
  };
  EXPECT_EQ(root->totalLogical, du("--apparent-size") - find("-type d -printf '%s\\n'"));
  EXPECT_EQ(root->totalPhysical, du("") - 512 * find("-type d -printf '%b\\n'"));
  EXPECT_EQ(root->totalDirs + 1, find("-type d -printf '1\\n'"));
}

TEST(Walker, CountsALinkOfSeveralNamesEachTime) {
  const TempFolder temp;
  temp.file("a/one", 3000);
  temp.folder("b");
  std::filesystem::create_symlink("one", temp.at("a/link"));
  std::filesystem::create_hard_link(temp.at("a/link"), temp.at("b/link"));
  const auto root = expectWalkMatches(ReferenceTree::of(temp.path), optionsFor(temp.path), 2);
  EXPECT_EQ(root->totalFiles, 3U);
  EXPECT_EQ(root->totalLogical, 3000U + 2 * 3);
}

TEST(Walker, SkipsFoldersAsTold) {
  const TempFolder temp;
  std::vector<std::string> skipped;
  for (int number = 10; number < 60; ++number) {  // found in whatever order
    skipped.push_back(temp.at(std::to_string(number) + "/in"));
    temp.file(std::to_string(number) + "/in/x", 10);
  }
  for (const std::string file : {"10/x", "in/x", "file"}) temp.file(file, 10);
  std::filesystem::create_directory_symlink("10", temp.at("link"));
  std::set<std::string> told(skipped.begin(), skipped.end());
  for (const std::string other : {"missing/in", "file", "link", "10/i"}) told.insert(temp.at(other));
  Walker walker(linuxPlatform(), optionsFor(temp.path, {.skipPaths = told}), nullptr);
  const Walker::Result result = walk(walker, temp.path, 3);
  EXPECT_EQ(result.skippedProtected, skipped);
  EXPECT_EQ(result.root->totalDirs, 51U);
  EXPECT_EQ(result.root->totalLogical, 32U);  // 10/x, in/x, file and the link's own two bytes
}

TEST(Walker, WalksTheFileSystemsRootUnderItsEmptyName) {
  RecordingSink sink("");
  Walker walker(linuxPlatform(), optionsFor("/"), &sink);
  sink.onRecord = [&](const DirNode&) { walker.cancelRun(); };
  const Walker::Result result = walk(walker, "", 1);
  EXPECT_TRUE(sink.folders.contains(""));
  EXPECT_EQ(sink.folders.size(), 1U);
  ASSERT_FALSE(result.root->subdirs.empty());
  const std::string child = result.root->subdirs.front()->path("");
  EXPECT_TRUE(std::filesystem::is_directory(child)) << child;
  EXPECT_EQ(child.rfind('/'), 0U);
}

TEST(Walker, StopsSoonWhenCancelledInMidWalk) {
  const TempFolder temp;
  for (int folder = 0; folder < 100; ++folder)
    temp.file(std::to_string(folder % 10) + "/" + std::to_string(folder) + "/f");
  for (const unsigned threads : {1U, 4U}) {
    RecordingSink sink(temp.path);
    Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
    sink.onRecord = [&](const DirNode&) {
      if (sink.folders.size() == 10) walker.cancelRun();
    };
    const Walker::Result result = walk(walker, temp.path, threads);
    EXPECT_GE(sink.folders.size(), 10U);
    EXPECT_LT(sink.folders.size(), 10U + threads);  // each worker ends with the folder that it lists
    EXPECT_EQ(walker.progress->snapshot().dirs, sink.folders.size());
    EXPECT_LT(result.root->totalFiles, 100U);
    EXPECT_EQ(result.errorCount, 0U);
  }
}

TEST(Walker, StopsWithinAFolderWhenCancelled) {
  const TempFolder temp;
  temp.folder("links");
  for (int file = 0; file < 2000; ++file) {
    temp.file("in/" + std::to_string(file));
    std::filesystem::create_hard_link(temp.at("in/" + std::to_string(file)),
                                      temp.at("links/" + std::to_string(file)));
  }
  RecordingSink sink(temp.at("in"));
  Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
  sink.onLink = [&](const DirNode&) { walker.cancelRun(); };
  const Walker::Result result = walk(walker, temp.at("in"), 1);
  EXPECT_GE(result.root->totalFiles, 1U);
  EXPECT_LT(result.root->totalFiles, 1000U);
}

TEST(Walker, WithoutThreadsWaitsUntilCancelled) {
  const TempFolder temp;
  temp.file("file", 10);
  Walker walker(linuxPlatform(), optionsFor(temp.path), nullptr);
  std::promise<void> begun;
  bool cancelledAtTheEnd = false;
  auto run = std::async(std::launch::async, [&] {
    begun.set_value();
    Walker::Result result = walk(walker, temp.path, 0);
    cancelledAtTheEnd = walker.cancel->isCancelled();
    return result;
  });
  begun.get_future().wait();
  // Another walk has its time to end, though it begins later.
  Walker other(linuxPlatform(), optionsFor(temp.path), nullptr);
  EXPECT_EQ(walk(other, temp.path, 4).root->totalFiles, 1U);
  EXPECT_EQ(run.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  walker.cancelRun();
  EXPECT_EQ(run.get().root->totalFiles, 0U);
  EXPECT_TRUE(cancelledAtTheEnd);
}

TEST(DirListing, TellsWhatARandomFolderHolds) {
  std::mt19937_64 random(randomSeed());
  const TempFolder temp;
  makeRandomTree(temp.path, random);
  const ReferenceTree tree = ReferenceTree::of(temp.path);
  const std::uint32_t device = optionsFor(temp.path).rootDev;
  std::size_t links = 0;
  for (const auto& [path, folder] : tree.folders) {
    const DirListing listing = DirListing::read(linuxPlatform(), path, device, true);
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
    std::map<std::string, std::int64_t> found;
    for (const DirListing::Subdir& child : listing.subdirs) found[path + "/" + child.name] = child.mtime;
    std::map<std::string, std::int64_t> below;
    for (const auto& [other, itsFolder] : tree.folders) {
      if (other != temp.path && other.substr(0, other.rfind('/')) == path) below[other] = itsFolder.mtime;
    }
    EXPECT_EQ(found, below);
    EXPECT_EQ(found.size(), listing.subdirs.size());
  }
  EXPECT_GT(links, 10U);
  for (const std::string missing : {"missing", "file"}) {
    if (missing == "file") temp.file(missing);
    const DirListing listing = DirListing::read(linuxPlatform(), temp.at(missing), device, true);
    EXPECT_TRUE(listing.error && listing.files.empty() && listing.subdirs.empty()) << missing;
  }
}

}  // namespace
}  // namespace quon::test
