#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <pwd.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

#include "linux_fs/Descriptor.h"
#include "platform_linux/KeyFileDefaults.h"
#include "platform_linux/LinuxPlatform.h"
#include "platform_linux/SystemLog.h"
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

TEST(KeyFileDefaults, WhatIsSetIsKeptForItsOwnerAlone) {
  const TempFolder temp;
  KeyFileDefaults defaults(temp.at("config/quon"));
  EXPECT_EQ(defaults.texts("recentRoots"), std::vector<std::string>());
  EXPECT_FALSE(defaults.flag("hasOnboarded"));
  const std::vector<std::string> roots{"/home/me/a;b", "/line\nbreak\\ ", "/stray\xff", "/\xc3\xa9"};
  defaults.setTexts("recentRoots", roots);
  defaults.setFlag("hasOnboarded", true);
  EXPECT_EQ(KeyFileDefaults(temp.at("config/quon")).texts("recentRoots"), roots);
  EXPECT_TRUE(defaults.flag("hasOnboarded"));

  const std::string file = temp.at("config/quon/defaults.ini");
  struct stat facts {};
  ASSERT_EQ(::stat(file.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777U, 0600U);

  std::filesystem::remove_all(temp.at("config/quon"));
  std::ofstream(temp.at("config/quon")) << "a file where the folder belongs";
  EXPECT_THROW(defaults.setFlag("hasOnboarded", true), std::system_error);
}

TEST(KeyFileDefaults, WhatTheUserWroteStaysByteForByte) {
  const TempFolder temp;
  const std::string file = temp.file("quon/defaults.ini");
  KeyFileDefaults defaults(temp.at("quon"));
  const auto after = [&](const std::string& text) {
    std::ofstream(file, std::ios::trunc) << text;
    defaults.setFlag("hasOnboarded", true);
    EXPECT_TRUE(KeyFileDefaults(temp.at("quon")).flag("hasOnboarded"));
    std::ifstream written(file);
    return std::string{std::istreambuf_iterator<char>(written), {}};
  };
  const std::string added = "hasOnboarded=true\n";
  EXPECT_EQ(after("# mine\n[quon]\nroot=/home"), "# mine\n[quon]\nroot=/home\n" + added);
  EXPECT_EQ(defaults.text("root"), "/home");
  EXPECT_EQ(
      after("no line of a key file\n[quon]\r\n\xff = \xfe\nroot = /x\n\n[else]\nhasOnboarded=no\n===\n"),
      "no line of a key file\n[quon]\r\n\xff = \xfe\nroot = /x\n" + added +
          "\n[else]\nhasOnboarded=no\n===\n");
  EXPECT_EQ(defaults.text("root"), "/x");
  EXPECT_EQ(after("[quon]\nhasOnboarded=1\n hasOnboarded = false\n<<<<<<< mine\nroot=/y\n"),
            "[quon]\nhasOnboarded=1\n" + added + "<<<<<<< mine\nroot=/y\n");
  EXPECT_EQ(defaults.text("root"), "/y");
  EXPECT_EQ(after("<<<<<<< mine"), "<<<<<<< mine\n[quon]\n" + added);

  // Kept elsewhere, among the user's own files.
  const std::string elsewhere = temp.file("dotfiles/quon.ini");
  std::filesystem::remove(file);
  std::filesystem::create_symlink(elsewhere, file);
  EXPECT_EQ(after("[quon]\n"), "[quon]\n" + added);
  EXPECT_TRUE(std::filesystem::is_symlink(file));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(temp.at("dotfiles")), {}), 1);
}

TEST(KeyFileDefaults, AFileThatCannotBeReadIsNotReplaced) {
  const TempFolder temp;
  const std::string file = temp.file("quon/defaults.ini", 10);
  std::filesystem::permissions(temp.path, std::filesystem::perms(0755));
  std::filesystem::permissions(temp.at("quon"), std::filesystem::perms(0777));
  std::filesystem::permissions(file, std::filesystem::perms(0));
  asOrdinaryUser([&] {
    KeyFileDefaults defaults(temp.at("quon"));
    EXPECT_THROW(defaults.setFlag("hasOnboarded", true), std::system_error);
    EXPECT_FALSE(defaults.flag("hasOnboarded"));
  });
  EXPECT_EQ(std::filesystem::file_size(file), 10U);
}

TEST(SystemLog, WritesEachLineToTheSystemsLogAndForCommandsOnStandardError) {
  inPrivateMounts([] {
    mountTmpfs("/dev");
    const Descriptor service(::socket(AF_UNIX, SOCK_DGRAM, 0));
    const sockaddr_un place{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    ASSERT_EQ(::bind(service.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
    for (const auto& [echo, echoed] : {std::pair(SystemLog::Echo::onTerminal, ""),
                                       std::pair(SystemLog::Echo::always, "[quon] cannot list /tmp/a␊b\n")}) {
      testing::internal::CaptureStderr();
      SystemLog(echo).line("cannot list /tmp/a\nb");
      EXPECT_EQ(testing::internal::GetCapturedStderr(), echoed);
      std::string logged(1000, ' ');
      const ssize_t bytes = ::recv(service.get(), logged.data(), logged.size(), MSG_DONTWAIT);
      ASSERT_GT(bytes, 0);
      logged.resize(static_cast<std::size_t>(bytes));
      EXPECT_TRUE(logged.ends_with("[quon] cannot list /tmp/a␊b")) << logged;
    }
  });
}

}  // namespace
}  // namespace quon::test
