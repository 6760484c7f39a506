// What happens between two looks of one batch, made to happen every time.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "live/Refresh.h"
#include "live/ScanPatcher.h"
#include "platform/Files.h"
#include "platform_linux/LinuxPlatform.h"
#include "store/FolderScan.h"
#include "support/IndexComparison.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

constexpr std::uint64_t kMinKeep = 1048576;

/// Files that are gone by the time they are looked at one by one.
class VanishedFiles final : public FileService {
 public:
  explicit VanishedFiles(const FileService& those) : real(those) {}

  std::string gone;

  std::optional<PathFacts> facts(const std::string& path, std::error_code& error) const override {
    if (path != gone) return real.facts(path, error);
    error = std::make_error_code(std::errc::no_such_file_or_directory);
    return std::nullopt;
  }
  std::optional<std::string> canonical(const std::string& path, std::error_code& error) const override {
    return real.canonical(path, error);
  }
  std::error_code readable(const std::string& folder) const override { return real.readable(folder); }
  std::vector<std::string> mountPoints() const override { return real.mountPoints(); }
  void makePrivateFolder(const std::string& path) const override { real.makePrivateFolder(path); }
  void createPrivateFile(const std::string& path) const override { real.createPrivateFile(path); }
  void replace(const std::string& from, const std::string& to) const override { real.replace(from, to); }
  bool remove(const std::string& path) const override { return real.remove(path); }
  std::vector<FolderItem> list(const std::string& folder) const override { return real.list(folder); }

 private:
  const FileService& real;
};

TEST(Races, ANameThatMovesAwayBeforeItsLinksAreCountedIsSearchedForTheNextTime) {
  const LinuxPlatform desktop;
  VanishedFiles files(desktop.services().files);
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
