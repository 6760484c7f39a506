// What no command but the trash does: change anything below a scanned folder.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <vector>

#include "QuonProcess.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::IsEmpty;
using testing::Not;

/// All that is known of everything below a folder, access times excepted.
std::map<std::string, std::string> stateOf(const std::string& folder) {
  std::map<std::string, std::string> state;
  const auto add = [&](const fs::path& path) {
    struct stat found {};
    if (::lstat(path.c_str(), &found) != 0) return;
    std::ostringstream text;
    text << found.st_ino << ' ' << found.st_mode << ' ' << found.st_nlink << ' ' << found.st_uid << ' '
         << found.st_size << ' ' << found.st_blocks << ' ' << found.st_mtim.tv_sec << '.' << found.st_mtim.tv_nsec
         << ' ' << found.st_ctim.tv_sec << '.' << found.st_ctim.tv_nsec << ' ';
    std::array<char, 4096> names{};
    text << std::string(names.data(), static_cast<std::size_t>(
                                          std::max<ssize_t>(0, ::llistxattr(path.c_str(), names.data(), names.size()))));
    if (S_ISREG(found.st_mode)) {
      std::ifstream file(path);
      text << std::hash<std::string>()({std::istreambuf_iterator<char>(file), {}});
    }
    state[path.string()] = text.str();
  };
  add(folder);
  for (const auto& entry : fs::recursive_directory_iterator(folder)) add(entry.path());
  return state;
}

class NothingWritten : public testing::Test {
 protected:
  NothingWritten() {
    TreeEditor editor(quon.tree, 7);
    editor.populate(60);
    quon.folder.file("tree/film.mp4", 3'000'000);
    quon.folder.file("tree/project/node_modules/a/b.js", 2'000'000);
    quon.folder.file("tree/.cache/CACHEDIR.TAG", 10);
  }

  /// Every command that ends by itself.
  [[nodiscard]] std::vector<Arguments> commands() const {
    const std::string& tree = quon.tree;
    return {{"scan", tree},
            {"scan", "--no-index", tree},
            {"ls", tree},
            {"ls", "--no-catch-up", tree + "/project"},
            {"largest", tree},
            {"kinds", tree},
            {"untouched", "--older-than", "1d", tree},
            {"reclaim", tree},
            {"names", tree},
            {"names", "--name", "b.js", tree},
            {"search", "kind:video", "--in", tree},
            {"commands", "scan"},
            {"map", tree, "-o", pictures + "map.svg"},
            {"map", tree, "-o", pictures + "map.png", "--mode", "treemap"},
            {"indexes", "--collect"},
            {"refresh"},
            {"trash", "--list"},
            {"trash", "--dry-run", tree + "/film.mp4", tree + "/project"}};
  }

  Quon quon;
  const std::string pictures = quon.folder.folder("pictures") + "/";
};

TEST_F(NothingWritten, ByAnyCommand) {
  const auto before = stateOf(quon.tree);
  for (const Arguments& arguments : commands()) {
    EXPECT_EQ(quon.run(arguments).status, 0) << arguments.front();
    EXPECT_EQ(stateOf(quon.tree), before) << arguments.front();
  }
  const Lines lines(quon);
  for (const Arguments& arguments : {Arguments{"watch", "--json", quon.tree}, Arguments{"record", "--json"}}) {
    Running running = quon.start(arguments);
    (void)lines.event("ready");
    running.signal(SIGTERM);
    (void)running.wait();
    EXPECT_EQ(stateOf(quon.tree), before) << arguments.front();
  }
}

/// The program's system calls that could change something, with the paths behind descriptors.
TEST_F(NothingWritten, AsItsSystemCallsShow) {
  // A file for each thread: in one of all, calls that wait are split, and the first half hides that they failed.
  const std::string logs = quon.folder.folder("calls");
  const std::string changing =
      "trace=openat,openat2,open,creat,rename,renameat,renameat2,unlink,unlinkat,mkdir,mkdirat,rmdir,link,linkat,"
      "symlink,symlinkat,mknod,mknodat,chmod,fchmod,fchmodat,chown,fchown,fchownat,lchown,utimensat,truncate,"
      "ftruncate,fallocate,setxattr,lsetxattr,fsetxattr,removexattr,lremovexattr,fremovexattr";
  quon.runUnder = {"strace", "-ff", "-y", "-qq", "-o", logs + "/of", "-e", changing};
  if (quon.run({"commands", "scan"}).status != 0 || fs::is_empty(logs)) GTEST_SKIP() << "nothing can be traced here";
  const auto isForWriting = [](const std::string& call) {
    constexpr const char* kFlags[]{"O_WRONLY", "O_RDWR", "O_CREAT", "O_TRUNC", "O_TMPFILE"};
    return std::ranges::any_of(kFlags, [&](const char* flag) { return call.find(flag) != std::string::npos; });
  };
  std::map<std::string, std::string> written;  // by path, what was called
  std::size_t reads = 0;
  for (const Arguments& arguments : commands()) {
    ASSERT_EQ(quon.run(arguments).status, 0) << arguments.front();
    std::vector<std::string> calls;
    for (const auto& log : fs::directory_iterator(logs)) {
      std::ifstream lines(log.path());
      for (std::string call; std::getline(lines, call);) calls.push_back(call);
      fs::remove(log.path());
    }
    for (const std::string& call : calls) {
      const bool isOpen = call.find("open") != std::string::npos;
      const bool isBelow = call.find(quon.tree) != std::string::npos;
      if (isOpen && !isForWriting(call)) {
        reads += isBelow ? 1 : 0;
        continue;
      }
      EXPECT_FALSE(isBelow) << arguments.front() << ": " << call;
      const bool hasFailed = call.find(" = -1 ") != std::string::npos;
      const std::size_t quote = call.find('"');
      if (hasFailed || quote == std::string::npos) continue;
      written.emplace(call.substr(quote + 1, call.find('"', quote + 1) - quote - 1), call);
    }
  }
  EXPECT_GT(reads, 50U) << "the walk was not traced";
  EXPECT_THAT(written, Not(IsEmpty()));
  const std::set<std::string> own{quon.environment.at("XDG_DATA_HOME"), quon.environment.at("XDG_STATE_HOME"),
                                  quon.environment.at("XDG_CONFIG_HOME"), pictures, "/dev/"};
  for (const auto& [path, call] : written) {
    std::cout << "written: " << path << '\n';
    const auto isAbove = [&at = path](const std::string& folder) { return at.starts_with(folder); };
    EXPECT_TRUE(std::ranges::any_of(own, isAbove)) << call;
  }
}

}  // namespace
}  // namespace quon::test
