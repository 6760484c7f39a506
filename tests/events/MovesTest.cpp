// Folders that appear, move, change places and vanish: where the watches are must not matter.
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

void write(const std::string& file) {
  std::ofstream(file, std::ios::app) << "more";
}

class Moves : public WithBackEnd {
 protected:
  /// Begins to follow; the tree is as the test made it.
  void follow() { follower = std::make_unique<Follower>(home, options()); }
  /// What was reported since the last call: path below the root, with "/*" behind it when deep.
  [[nodiscard]] std::set<std::string> reported() {
    std::set<std::string> paths;
    for (const auto& [path, flags] : follower->changes()) {
      const bool deep = (flags & EventFlag::mustScanSubdirs) != 0;
      paths.insert((path == home.root ? "." : path.substr(home.root.size() + 1)) + (deep ? "/*" : ""));
    }
    return paths;
  }
  [[nodiscard]] std::string at(const std::string& name) const { return home.at(name); }

  EventHome home;
  std::unique_ptr<Follower> follower;
};

using Paths = std::set<std::string>;

TEST_P(Moves, FolderMovedOutIsForgottenAndOneMovedInIsWatched) {
  home.temp.folder("root/a/deep/deeper");
  home.temp.folder("elsewhere/other/deep");
  follow();
  fs::rename(at("a"), home.temp.at("elsewhere/a"));
  EXPECT_EQ(reported(), (Paths{"."}));
  write(home.temp.at("elsewhere/a/deep/deeper/file"));
  EXPECT_EQ(reported(), Paths());
  fs::rename(home.temp.at("elsewhere/other"), at("other"));
  EXPECT_EQ(reported(), (Paths{".", "other/*"}));
  write(at("other/deep/file"));
  EXPECT_EQ(reported(), (Paths{"other/deep"}));
  fs::rename(home.temp.at("elsewhere/a"), at("a"));
  EXPECT_EQ(reported(), (Paths{".", "a/*"}));
  write(at("a/deep/deeper/file"));
  EXPECT_EQ(reported(), (Paths{"a/deep/deeper"}));
}

TEST_P(Moves, ChangeAtAPathBeyondTheSystemsLimitIsReportedOrCovered) {
  const std::string name(200, 'n');
  std::string path = home.root;
  Descriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY));
  for (int depth = 0; depth < 30; ++depth) {
    ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0755), 0);
    folder = Descriptor(::openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY));
    path += "/" + name;
  }
  follow();
  { const Descriptor file(::openat(folder.get(), "file", O_CREAT | O_WRONLY, 0644)); }
  const Reported found = follower->changes();
  bool covered = found.contains(path);
  for (const auto& [each, flags] : found) {
    covered = covered || ((flags & EventFlag::mustScanSubdirs) != 0 && path.starts_with(each + "/"));
  }
  EXPECT_TRUE(covered);
}

INSTANTIATE_TEST_SUITE_P(BackEnds, Moves, eachBackEnd(), backEndName);

}  // namespace
}  // namespace quon::test
