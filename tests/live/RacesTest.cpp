// What happens between two looks of one batch, made to happen every time.
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "ScannedTree.h"
#include "linux_fs/LinuxFiles.h"
#include "platform/Directories.h"
#include "support/IndexComparison.h"

namespace quon::test {
namespace {

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

class Races : public ScannedTree {
 protected:
  /// A file gets its second name after the batch has read the folder of the first, and before it reads that
  /// of the second. `deep` says how the first was read.
  void expectFirstNameFound(const std::string& firstName, bool deep) {
    tree.file(firstName, 5000);
    tree.folder("second");
    const std::string index = scan("patched");
    HookedDirectories directories(platform.directories);
    directories.path = tree.at("second");
    directories.beforeOpening = [&] {
      if (!std::filesystem::exists(tree.at("second/two"))) {
        std::filesystem::create_hard_link(tree.at(firstName), tree.at("second/two"));
      }
    };
    patch({directories, platform.files, platform.threads}, index,
          {{tree.at("first"), deep}, {tree.at("second"), false}}, 1);
    ASSERT_TRUE(std::filesystem::exists(tree.at("second/two")));
    EXPECT_EQ(differences(index, scan("fresh")), "");
  }
};

/// The folder of the name that stays was read while the file had two; nothing tells it that one is left.
TEST_F(Races, AFileWhoseOtherNameGoesWhileTheBatchIsReadHasOneName) {
  for (const bool wasKnown : {false, true}) {
    for (const bool deep : {false, true}) {
      const std::string home = std::string(wasKnown ? "known" : "new") + (deep ? "-deep" : "");
      const std::string first = home + "/first/one";
      const std::string second = home + "/second/two";
      tree.file(first, 5000);
      tree.folder(home + "/second");
      if (wasKnown) std::filesystem::create_hard_link(tree.at(first), tree.at(second));
      const std::string index = scan("patched-" + home);
      if (!wasKnown) std::filesystem::create_hard_link(tree.at(first), tree.at(second));
      HookedDirectories directories(platform.directories);
      directories.path = tree.at(home + "/second");
      directories.beforeOpening = [&] { std::filesystem::remove(tree.at(second)); };
      patch({directories, platform.files, platform.threads}, index,
            {{tree.at(home + "/first"), deep}, {tree.at(home + "/second"), false}}, 1);
      ASSERT_FALSE(std::filesystem::exists(tree.at(second))) << home;
      EXPECT_EQ(differences(index, scan("fresh-" + home)), "") << home;
    }
  }
}

TEST_F(Races, AFirstNameInAFolderThatWasReadBeforeIsFound) {
  expectFirstNameFound("first/one", /*deep=*/false);
}

TEST_F(Races, AFirstNameBelowAFolderThatWasReadBeforeIsFound) {
  expectFirstNameFound("first/below/one", /*deep=*/true);
}

TEST_F(Races, ANameThatMovesAwayBeforeItsLinksAreCountedIsSearchedForTheNextTime) {
  tree.file("first/one", 5000);
  tree.folder("second");
  const std::string index = scan("patched");
  std::filesystem::create_hard_link(tree.at("first/one"), tree.at("second/two"));
  VanishedFiles files;
  for (const std::string& gone : {tree.at("second/two"), std::string()}) {
    files.gone = gone;
    patch({platform.directories, files, platform.threads}, index, {{tree.at("second"), false}}, 1);
  }
  EXPECT_EQ(differences(index, scan("fresh")), "");
}

}  // namespace
}  // namespace quon::test
