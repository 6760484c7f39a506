// What happens between two looks of one batch, made to happen every time.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "live/Refresh.h"
#include "live/ScanPatcher.h"
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
