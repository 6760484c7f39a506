#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "Reference.h"
#include "linux_fs/Descriptor.h"
#include "platform/Directories.h"
#include "scan/DirListing.h"
#include "support/ChildProcess.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// A file system of one folder with a given listing, none of whose child folders opens.
class OneFolder final : public DirectoryService {
 public:
  struct Step {
    std::vector<DirEntry> entries;
    ReadStatus status = ReadStatus::more;
  };
  explicit OneFolder(std::vector<Step> listing) : steps(std::move(listing)) {}
  [[nodiscard]] std::unique_ptr<DirectoryReader> makeReader() const override {
    return std::make_unique<Reader>(steps);
  }
  [[nodiscard]] Platform platform() const { return {*this, linuxPlatform().files, linuxPlatform().threads}; }

 private:
  struct Folder final : OpenDirectory {
    [[nodiscard]] FolderFacts facts() const override { return {}; }
  };
  class Reader final : public DirectoryReader {
   public:
    explicit Reader(const std::vector<Step>& listing) : steps(listing) {}
    OpenedDirectory open(const std::string& /*path*/) override { return {std::make_shared<Folder>(), {}}; }
    OpenedDirectory openChild(const OpenDirectory& /*parent*/, const std::string& /*name*/) override {
      return {nullptr, std::make_error_code(std::errc::io_error)};
    }
    void start(const OpenDirectoryRef& /*directory*/, Detail /*detail*/) override { at = 0; }
    DirectoryBatch next() override {
      const Step& step = steps[at++];
      return {step.entries, step.status, false, std::make_error_code(std::errc::device_or_resource_busy)};
    }

   private:
    const std::vector<Step>& steps;
    std::size_t at = 0;
  };

  const std::vector<Step> steps;
};

DirEntry regular(std::string_view name, std::uint64_t logical) {
  return {.name = name, .type = EntryType::regular, .logical = logical};
}

TEST(Faults, ListingThatFailsMidwayKeepsItsEntries) {
  const OneFolder broken({{{regular("a", 10), {.name = "sub", .type = EntryType::directory, .mtime = 5}}},
                          {{}, ReadStatus::failed}});
  const Platform platform = broken.platform();
  RecordingSink sink("/tmp");
  Walker walker(platform, {}, &sink);
  const Walker::Result result = walk(walker, "/tmp", 1);
  EXPECT_TRUE(result.root->error);
  EXPECT_TRUE(result.root->subdirs.at(0)->error);
  EXPECT_EQ(result.root->totalLogical, 10U);
  EXPECT_EQ(result.errorCount, 2U);
  EXPECT_THAT(result.errorSamples, UnorderedElementsAre("/tmp", "/tmp/sub"));
  EXPECT_THAT(result.errorReasons, UnorderedElementsAre("input/output error", "device or resource busy"));
  EXPECT_THAT(sink.folders.at("/tmp"), ElementsAre(FileEntry{"a", 10, 0, 0}));
  EXPECT_TRUE(sink.folders.at("/tmp/sub").empty());
  const Progress::Snapshot progress = walker.progress->snapshot();
  EXPECT_EQ(progress.dirs, 1U);  // a folder that did not even open counts as an error only
  EXPECT_EQ(progress.errors, 2U);

  const DirListing listing = DirListing::read(platform, "/tmp", 0, true);
  EXPECT_TRUE(listing.error);
  EXPECT_FALSE(listing.isTransient());
  EXPECT_EQ(listing.files.size(), 1U);
  EXPECT_EQ(listing.subdirs.size(), 1U);
}

TEST(Faults, FewDescriptorsLoseNoFolder) {
  const TempFolder temp;
  std::string spine = "spine";
  for (int level = 0; level < 60; ++level, spine += "/spine") {
    for (const std::string child : {"first", "last"}) temp.file(fmt::format("{}/{}/file", spine, child), 10);
  }
  const ReferenceTree tree = ReferenceTree::of(temp.path);
  const Walker::Options options = optionsFor(temp.path);
  inChild([&] {
    const auto leave = [lowest = Descriptor(::open("/", O_PATH | O_CLOEXEC)).get()](int descriptors) {
      rlimit limit{};
      ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
      limit.rlim_cur = static_cast<rlim_t>(lowest) + static_cast<rlim_t>(descriptors);
      ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    };
    for (const int descriptors : {1, 2, 5, 20}) {
      leave(descriptors);
      for (const unsigned threads : {1U, 8U}) expectWalkMatches(tree, options, threads);
    }
    leave(0);
    Walker walker(linuxPlatform(), options, nullptr);
    const Walker::Result result = walk(walker, temp.path, 4);
    EXPECT_THAT(result.errorReasons, ElementsAre("too many open files"));
    const DirListing listing = DirListing::read(linuxPlatform(), temp.path, options.rootDev, true);
    EXPECT_TRUE(listing.isTransient());
    EXPECT_TRUE(listing.subdirs.empty());
  });
}

TEST(Faults, UnreadableFoldersAreCountedAndFiftyOfThemSampled) {
  const TempFolder temp;
  std::filesystem::permissions(temp.path, std::filesystem::perms(0755));
  for (int number = 0; number < 59; ++number) {
    const std::string name = std::to_string(number);
    temp.file("closed " + name + "/below/file", 100);
    EXPECT_EQ(::chmod(temp.at("closed " + name).c_str(), 0), 0);
    temp.file("open " + name + "/file", 1);
  }
  temp.file("closed to searches/file", 100);
  EXPECT_EQ(::chmod(temp.at("closed to searches").c_str(), 0444), 0);
  asOrdinaryUser([&] {
    RecordingSink sink(temp.path);
    Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
    const Walker::Result result = walk(walker, temp.path, 4);
    EXPECT_EQ(result.errorCount, 60U);
    EXPECT_THAT(result.errorSamples,
                testing::AllOf(testing::SizeIs(50), testing::Each(testing::HasSubstr("/closed "))));
    EXPECT_THAT(result.errorReasons, testing::AllOf(testing::SizeIs(50), testing::Each("permission denied")));
    EXPECT_EQ(std::set(result.errorSamples.begin(), result.errorSamples.end()).size(), 50U);
    EXPECT_EQ(result.root->totalLogical, 59U);
    EXPECT_EQ(result.root->totalFiles, 60U);  // with the one whose size cannot be read
    EXPECT_EQ(sink.folders.size(), 120U);
    for (const auto& child : result.root->subdirs)
      EXPECT_EQ(child->error, child->name.starts_with("closed")) << child->name;
    const DirListing listing =
        DirListing::read(linuxPlatform(), temp.at("closed to searches"), optionsFor(temp.path).rootDev, true);
    EXPECT_TRUE(listing.error && !listing.isTransient());
    EXPECT_EQ(listing.files.size(), 1U);
  });
}

TEST(Faults, FoldersReplacedBeforeTheyAreListedAreErrorsAndNotEntered) {
  const TempFolder temp;
  const TempFolder elsewhere;
  elsewhere.file("secret", 1 << 20);
  for (const std::string name : {"stays", "removed", "file", "link", "moved"}) temp.file(name + "/f", 10);
  RecordingSink sink(temp.path);
  Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
  sink.onRecord = [&](const DirNode& node) {  // the only worker has listed the root, and nothing below it yet
    if (node.parent != nullptr) return;
    for (const std::string name : {"removed", "file", "link"}) removeTree(temp.at(name));
    temp.file("file", 1 << 20);
    std::filesystem::create_directory_symlink(elsewhere.path, temp.at("link"));
    std::filesystem::rename(temp.at("moved"), elsewhere.at("moved"));
  };
  const Walker::Result result = walk(walker, temp.path, 1);
  EXPECT_THAT(result.errorSamples,
              UnorderedElementsAre(temp.at("removed"), temp.at("file"), temp.at("link"), temp.at("moved")));
  EXPECT_EQ(result.errorCount, 4U);
  EXPECT_EQ(result.root->totalDirs, 5U);
  EXPECT_EQ(result.root->totalLogical, 10U);
  EXPECT_EQ(sink.folders.size(), 6U);
}

TEST(Faults, FolderRemovedWhileItIsListedIsNoError) {
  const TempFolder temp;
  temp.folder("links");
  for (int number = 0; number < 1000; ++number) {
    const std::string name = std::to_string(number);
    std::filesystem::create_hard_link(temp.file("in/" + name, 1), temp.at("links/" + name));
  }
  RecordingSink sink(temp.at("in"));
  Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
  sink.onLink = [&](const DirNode&) { removeTree(temp.at("in")); };
  const Walker::Result result = walk(walker, temp.at("in"), 1);
  EXPECT_FALSE(std::filesystem::exists(temp.at("in")));
  EXPECT_EQ(result.errorCount, 0U);
  EXPECT_EQ(result.root->totalFiles, sink.folders.at(temp.at("in")).size());
  EXPECT_GE(result.root->totalFiles, 1U);
  EXPECT_LT(result.root->totalFiles, 1000U);  // those read before it was emptied
}

}  // namespace
}  // namespace quon::test
