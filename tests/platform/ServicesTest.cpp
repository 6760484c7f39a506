#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <pwd.h>
#include <string>
#include <system_error>
#include <unistd.h>

#include "platform_linux/KeyFileDefaults.h"
#include "platform_linux/LinuxPlatform.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// The folders under the given environment; an empty optional unsets the variable.
Folders foldersWith(const std::optional<std::string>& home, const std::optional<std::string>& xdg) {
  const auto set = [](const char* name, const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name, value->c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no other thread runs
    } else {
      ::unsetenv(name);  // NOLINT(concurrency-mt-unsafe)
    }
  };
  set("HOME", home);
  for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) set(name, xdg);
  return LinuxPlatform::folders();
}

TEST(PlatformFolders, FollowAbsoluteVariablesOnly) {
  inChild([] {
    const Folders given = foldersWith("/home/me//", "/x/");
    EXPECT_EQ(given.home, "/home/me");
    EXPECT_EQ(given.data, "/x/quon");
    EXPECT_EQ(given.index(), "/x/quon/index");
    for (const std::optional<std::string>& ignored :
         {std::optional<std::string>(), {""}, {"relative/x"}, {"~/x"}}) {
      const Folders usual = foldersWith("/home/me", ignored);
      EXPECT_EQ(usual.data, "/home/me/.local/share/quon");
      EXPECT_EQ(usual.config, "/home/me/.config/quon");
      EXPECT_EQ(usual.state, "/home/me/.local/state/quon");
      EXPECT_EQ(foldersWith(ignored, "/x").home,
                ::getpwuid(::getuid())->pw_dir);  // NOLINT(concurrency-mt-unsafe)
    }
    // Services without a home of their own have "/": their paths must compare equal to those that a walk
    // builds.
    EXPECT_EQ(foldersWith("/", std::nullopt).data, "/.local/share/quon");
    EXPECT_EQ(foldersWith("/", "/").state, "/quon");
  });
}

TEST(KeyFileDefaults, WhatIsSetIsKeptBesideWhatTheUserWrote) {
  const TempFolder temp;
  KeyFileDefaults defaults(temp.at("config/quon"));
  EXPECT_EQ(defaults.texts("recentRoots"), std::vector<std::string>());
  EXPECT_FALSE(defaults.flag("hasOnboarded"));
  const std::vector<std::string> roots{"/home/me/a;b", "/line\nbreak\\ ", "/stray\xff", "/\xc3\xa9"};
  defaults.setTexts("recentRoots", roots);
  defaults.setFlag("hasOnboarded", true);
  EXPECT_EQ(KeyFileDefaults(temp.at("config/quon")).texts("recentRoots"), roots);
  EXPECT_TRUE(defaults.flag("hasOnboarded"));

  std::ofstream(temp.at("config/quon/defaults.ini")) << "# mine\n[quon]\nroot=/home\n";
  defaults.setTexts("recentRoots", {});
  EXPECT_EQ(defaults.text("root"), "/home");
  EXPECT_EQ(defaults.texts("recentRoots"), std::vector<std::string>());
  std::ifstream kept(temp.at("config/quon/defaults.ini"));
  const std::string content{std::istreambuf_iterator<char>(kept), {}};
  EXPECT_NE(content.find("# mine"), std::string::npos);

  std::filesystem::remove_all(temp.at("config/quon"));
  std::ofstream(temp.at("config/quon")) << "a file where the folder belongs";
  EXPECT_THROW(defaults.setFlag("hasOnboarded", true), std::system_error);
}

}  // namespace
}  // namespace quon::test
