// What happens between two looks of one batch, made to happen every time.
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "live/Refresh.h"
#include "live/ScanPatcher.h"
#include "platform/Directories.h"
#include "platform_linux/LinuxFiles.h"
#include "platform_linux/LinuxPlatform.h"
#include "store/FolderScan.h"
#include "support/IndexComparison.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

constexpr std::uint64_t kMinKeep = 1048576;

/// Files that are gone by the time they are looked at one by one.
class VanishedFiles final : public LinuxFiles {
 public:
  std::string gone;

  [[nodiscard]] std::optional<PathFacts> ownFacts(const std::string& path,
                                                  std::error_code& error) const override {
    if (path != gone) return LinuxFiles::ownFacts(path, error);
    error = std::make_error_code(std::errc::no_such_file_or_directory);
    return std::nullopt;
  }
};

/// Folders that run a hook before one of them is opened.
class HookedDirectories final : public DirectoryService {
 public:
  explicit HookedDirectories(const DirectoryService& those) : real(those) {}

  std::string path;
  std::function<void()> beforeOpening;

  [[nodiscard]] std::unique_ptr<DirectoryReader> makeReader() const override {
    return std::make_unique<Reader>(*this, real.makeReader());
  }

 private:
  class Reader final : public DirectoryReader {
   public:
    Reader(const HookedDirectories& from, std::unique_ptr<DirectoryReader> those)
        : owner(from), real(std::move(those)) {}
    OpenedDirectory open(const std::string& which) override {
      if (which == owner.path) owner.beforeOpening();
      return real->open(which);
    }
    OpenedDirectory openChild(const OpenDirectory& parent, const std::string& name) override {
      return real->openChild(parent, name);
    }
    void start(const OpenDirectoryRef& directory, Detail detail) override { real->start(directory, detail); }
    DirectoryBatch next() override { return real->next(); }

   private:
    const HookedDirectories& owner;
    const std::unique_ptr<DirectoryReader> real;
  };

  const DirectoryService& real;
};

/// A file gets its second name after the batch has read the folder of the first, and before it reads that of
/// the second. `deep` says how the first was read.
void expectFirstNameFound(bool deep) {
  const LinuxPlatform desktop;
  HookedDirectories directories(desktop.services().directories);
  const Platform platform{directories, desktop.services().files, desktop.services().threads};
  const TempFolder work;
  const TempFolder tree;
  const auto scan = [&](const std::string& name) {
    return FolderScan(desktop.services(), {.root = tree.path, .indexDirectory = work.folder(name)}).run();
  };
  const std::string one = deep ? "first/below/one" : "first/one";
  tree.file(one, 5000);
  tree.folder("second");
  const FolderScan::Outcome scanned = scan("patched");
  directories.path = tree.at("second");
  directories.beforeOpening = [&] {
    if (!std::filesystem::exists(tree.at("second/two"))) {
      std::filesystem::create_hard_link(tree.at(one), tree.at("second/two"));
    }
  };
  ScanPatcher patcher(scanned.index, tree.path);
  const Refresh::Batch batch = Refresh::prepare(
      platform, {{tree.at("first"), deep}, {tree.at("second"), false}}, patcher,
      {.rootPath = tree.path, .rootDev = scanned.rootDev, .minKeep = kMinKeep, .skipPaths = {}});
  Refresh::commitStore(batch, patcher);
  patcher.commit(1, 1.5);
  ASSERT_TRUE(std::filesystem::exists(tree.at("second/two")));
  EXPECT_EQ(differences(scanned.index, scan("fresh").index), "");
}

TEST(Races, AFirstNameInAFolderThatWasReadBeforeIsFound) {
  expectFirstNameFound(/*deep=*/false);
  expectFirstNameFound(/*deep=*/true);
}

TEST(Races, ANameThatMovesAwayBeforeItsLinksAreCountedIsSearchedForTheNextTime) {
  const LinuxPlatform desktop;
  VanishedFiles files;
  const Platform platform{desktop.services().directories, files, desktop.services().threads};
  const TempFolder work;
  const TempFolder tree;
  const auto scan = [&](const std::string& name) {
    return FolderScan(desktop.services(), {.root = tree.path, .indexDirectory = work.folder(name)}).run();
  };
  tree.file("first/one", 5000);
  tree.folder("second");
  const FolderScan::Outcome scanned = scan("patched");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));

  const auto apply = [&] {
    ScanPatcher patcher(scanned.index, tree.path);
    const Refresh::Batch batch = Refresh::prepare(
        platform, {{tree.at("second"), false}}, patcher,
        {.rootPath = tree.path, .rootDev = scanned.rootDev, .minKeep = kMinKeep, .skipPaths = {}});
    Refresh::commitStore(batch, patcher);
    patcher.commit(1, 1.5);
  };
  files.gone = tree.at("second/two");
  apply();
  files.gone.clear();
  apply();
  EXPECT_EQ(differences(scanned.index, scan("fresh").index), "");
}

}  // namespace
}  // namespace quon::test
