#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "linux_fs/LinuxFiles.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class Files : public testing::Test {
 protected:
  static mode_t modeOf(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(::lstat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777;
  }

  /// The message of the failure that the call must end with.
  template <typename Call>
  static std::string failureOf(Call call) {
    try {
      call();
    } catch (const std::system_error& failure) {
      return failure.what();
    }
    return "no failure";
  }

  TempFolder temp;
  LinuxFiles files;
};

TEST_F(Files, MadeFoldersAndFilesAreClosedToOthers) {
  fs::permissions(temp.path, fs::perms(0755));
  inChild([&] {
    ::umask(0);
    files.makePrivateFolder(temp.at("data/quon/index"));
    files.makePrivateFolder(temp.at("data/quon/index"));
    EXPECT_EQ(modeOf(temp.path), 0755U);
    for (const std::string made : {"data", "data/quon", "data/quon/index"})
      EXPECT_EQ(modeOf(temp.at(made)), 0700U);
    files.createPrivateFile(temp.at("data/file"));
    EXPECT_EQ(modeOf(temp.at("data/file")), 0600U);
    EXPECT_EQ(fs::file_size(temp.at("data/file")), 0U);
  });
}

TEST_F(Files, WhatIsThereIsNeverOverwritten) {
  std::ofstream(temp.at("taken")) << "precious";
  fs::create_symlink(temp.at("elsewhere"), temp.at("link"));
  EXPECT_THAT(failureOf([&] { files.createPrivateFile(temp.at("taken")); }), HasSubstr(temp.at("taken")));
  EXPECT_THAT(failureOf([&] { files.createPrivateFile(temp.at("link")); }), HasSubstr("File exists"));
  EXPECT_FALSE(fs::exists(temp.at("elsewhere")));
  EXPECT_EQ(fs::file_size(temp.at("taken")), 8U);
  EXPECT_THAT(failureOf([&] { files.makePrivateFolder(temp.at("taken/below")); }),
              HasSubstr(temp.at("taken")));
}

TEST_F(Files, FactsArePassedThroughLinksAndFailuresSayWhy) {
  temp.file("folder/file", 1234);
  fs::create_symlink("folder/file", temp.at("link"));
  fs::create_symlink("loop", temp.at("loop"));
  std::error_code error;
  const auto facts = files.facts(temp.at("link"), error);
  ASSERT_TRUE(facts);
  EXPECT_FALSE(facts->isDirectory);
  EXPECT_EQ(facts->logical, 1234U);
  fs::create_hard_link(temp.at("folder/file"), temp.at("second name"));
  EXPECT_EQ(files.facts(temp.at("link"), error)->linkCount, facts->linkCount + 1);
  EXPECT_EQ(files.facts(temp.at("folder/file"), error)->fileID, facts->fileID);
  EXPECT_TRUE(files.facts(temp.path, error)->isDirectory);
  EXPECT_EQ(files.canonical(temp.at("folder/.././/link"), error), temp.at("folder/file"));
  EXPECT_FALSE(error);

  const std::map<std::string, std::errc> reasons{{"missing", std::errc::no_such_file_or_directory},
                                                 {"link/below", std::errc::not_a_directory},
                                                 {"loop", std::errc::too_many_symbolic_link_levels}};
  for (const auto& [name, reason] : reasons) {
    EXPECT_FALSE(files.facts(temp.at(name), error));
    EXPECT_EQ(error, reason) << name;
    error.clear();
    EXPECT_FALSE(files.canonical(temp.at(name), error));
    EXPECT_EQ(error, reason) << name;
    EXPECT_EQ(files.readable(temp.at(name)), reason) << name;
  }
  EXPECT_EQ(files.readable(temp.at("link")), std::errc::not_a_directory);
  EXPECT_FALSE(files.readable(temp.at("folder")));
  temp.folder("closed");
  fs::permissions(temp.at("closed"), fs::perms::none);
  fs::permissions(temp.path, fs::perms(0755));
  asOrdinaryUser([&] { EXPECT_EQ(files.readable(temp.at("closed")), std::errc::permission_denied); });
}

TEST_F(Files, MountPointsAreListedInTheOrderOfMounting) {
  const std::string first = temp.folder("with space, \\ and\nline break");
  const std::string second = temp.folder("a");
  inPrivateMounts([&] {
    mountTmpfs(first);
    mountTmpfs(second);
    const std::vector<std::string> points = files.mountPoints();
    ASSERT_GE(points.size(), 2U);
    EXPECT_THAT(std::vector(points.end() - 2, points.end()), testing::ElementsAre(first, second));
  });
}

}  // namespace
}  // namespace quon::test
