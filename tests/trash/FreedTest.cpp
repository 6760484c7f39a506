// What is said to be freed, against what the file system has more when it is really deleted.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/statvfs.h>
#include <vector>

#include "support/ChildProcess.h"
#include "support/SampleTree.h"
#include "support/Seed.h"
#include "support/Shell.h"
#include "support/TempFolder.h"
#include "support/TreeEditor.h"
#include "trash/Freed.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

std::uint64_t freeBytes(const std::string& path) {
  struct statvfs found {};
  EXPECT_EQ(::statvfs(path.c_str(), &found), 0);
  return std::uint64_t{found.f_bfree} * found.f_frsize;
}

/// In memory, where folders take no blocks.
TEST(Freed, IsWhatDeletingFrees) {
  const std::uint64_t seed = randomSeed();
  const TempFolder top;
  const std::string root = top.folder("root");
  inPrivateMounts([&] {
    ASSERT_TRUE(shell("mount -t tmpfs -o size=1g tmpfs $1", {root}));
    std::mt19937_64 random(seed);
    TreeEditor editor(root, seed);
    editor.populate(200);
    std::uint64_t linked = 0;
    for (int round = 0; round < 40; ++round) {
      for (int edits = 0; edits < 10; ++edits) editor.edit();
      (void)editor.takeEvents();
      std::vector<std::string> paths;
      for (const auto& entry : fs::recursive_directory_iterator(root)) paths.push_back(entry.path().string());
      std::ranges::shuffle(paths, random);
      paths.resize(std::min<std::size_t>(paths.size(), 1 + random() % 4));
      std::erase_if(paths, [&](const std::string& path) {
        return std::ranges::any_of(paths, [&](const std::string& other) { return path.starts_with(other + "/"); });
      });
      Freed freed;
      for (const std::string& path : paths) freed.add(Freed::of(linuxPlatform(), path, [] { return false; }));
      linked += freed.total().keptByLinks;
      const std::uint64_t before = freeBytes(root);
      for (const std::string& path : paths) fs::remove_all(path);
      ASSERT_EQ(freed.total().physical, freeBytes(root) - before) << "round " << round;
      EXPECT_EQ(freed.total().unreadable, 0U);
    }
    EXPECT_GT(linked, 0U) << "no file had another name";
  });
}

}  // namespace
}  // namespace quon::test
