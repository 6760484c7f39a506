#include <algorithm>
#include <atomic>
#include <cstdint>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "Reference.h"
#include "linux_fs/Descriptor.h"
#include "platform/Directories.h"
#include "scan/ScanSink.h"
#include "support/ChildProcess.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

/// Counts what it gets, and the descriptors that are open meanwhile.
class CountingSink final : public ScanSink {
 public:
  void record(const DirNode& /*node*/, FileBatch batch) override {
    files += batch.size();
    if (folders++ % 16 == 0) {
      const std::lock_guard held(lock);
      mostDescriptors = std::max(mostDescriptors, openDescriptors());
    }
  }
  std::atomic<std::uint64_t> files = 0;
  std::atomic<std::uint64_t> folders = 0;
  std::size_t mostDescriptors = 0;
  std::mutex lock;
};

/// A folder in memory, of any depth or width.
class Large : public testing::Test {
 protected:
  /// The body has as many descriptors as a process gets by default.
  void inMemory(const std::function<void()>& body) {
    inPrivateMounts([&] {
      rlimit limit{.rlim_cur = 1024, .rlim_max = 1024};
      ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
      mountTmpfs(temp.path);
      body();
    });
  }

  static void must(bool done, const char* name) {
    if (!done) throw std::system_error(errno, std::generic_category(), name);
  }
  static Descriptor openFolder(int parent, const char* name) {
    Descriptor opened(::openat(parent, name, O_PATH | O_DIRECTORY | O_CLOEXEC));
    must(opened.isOpen(), name);
    return opened;
  }
  static void makeFolder(int parent, const char* name) { must(::mkdirat(parent, name, S_IRWXU) == 0, name); }
  static void makeFile(int parent, const char* name, off_t size = 0) {
    must(::mknodat(parent, name, S_IFREG | S_IRUSR | S_IWUSR, 0) == 0, name);
    if (size == 0) return;
    const Descriptor file(::openat(parent, name, O_WRONLY | O_CLOEXEC));
    must(::ftruncate(file.get(), size) == 0, name);
  }

  TempFolder temp;
};

TEST_F(Large, NestedFoldersAreWalkedToTheBottomWithFewDescriptors) {
  constexpr std::size_t depth = 100'000;
  inMemory([&] {
    Descriptor at = openFolder(AT_FDCWD, temp.path.c_str());
    for (std::size_t level = 0; level < depth; ++level) {
      makeFolder(at.get(), "d");
      at = openFolder(at.get(), "d");
    }
    makeFile(at.get(), "bottom", 3 << 20);
    CountingSink sink;
    Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
    const std::size_t before = openDescriptors();
    const Walker::Result result = walk(walker, temp.path, 4);
    EXPECT_EQ(result.errorCount, 0U);
    EXPECT_EQ(result.root->totalDirs, depth);
    EXPECT_EQ(result.root->totalFiles, 1U);
    EXPECT_EQ(sink.folders, depth + 1);
    ASSERT_EQ(result.topFiles.size(), 1U);
    EXPECT_EQ(result.topFiles.front().path.size(), temp.path.size() + 2 * depth + 7);
    EXPECT_EQ(result.topFiles.front().logical, 3U << 20);
    EXPECT_GT(sink.mostDescriptors, before);
    EXPECT_LT(sink.mostDescriptors, before + 16);

    const std::string deepest = walker.progress->snapshot().currentPath;
    EXPECT_EQ(deepest.size(), temp.path.size() + 2 * depth);
    const auto reader = linuxPlatform().directories.makeReader();
    const OpenedDirectory opened = reader->open(deepest);
    ASSERT_TRUE(opened.directory) << opened.error.message();
    reader->start(opened.directory);
    const DirectoryBatch batch = reader->next();
    ASSERT_EQ(batch.entries.size(), 1U);
    EXPECT_EQ(batch.entries.front().name, "bottom");
  });
}

TEST_F(Large, FoldersWithSiblingsOnEveryLevelKeepABoundedNumberOpen) {
  // Each folder on the way down has a sibling on either side, so that in whatever order the file system lists
  // them, some wait while the walk goes deeper, and share a parent that is kept open for them.
  constexpr std::size_t depth = 2000;
  inMemory([&] {
    Descriptor at = openFolder(AT_FDCWD, temp.path.c_str());
    for (std::size_t level = 0; level < depth; ++level) {
      for (const char* name : {"first", "spine", "last"}) {
        makeFolder(at.get(), name);
        makeFile(openFolder(at.get(), name).get(), "file", 100);
      }
      at = openFolder(at.get(), "spine");
    }
    for (const unsigned threads : {1U, 16U}) {
      CountingSink sink;
      Walker walker(linuxPlatform(), optionsFor(temp.path), &sink);
      const std::size_t before = openDescriptors();
      const Walker::Result result = walk(walker, temp.path, threads);
      EXPECT_EQ(result.errorCount, 0U);
      EXPECT_EQ(result.root->totalDirs, 3 * depth);
      EXPECT_EQ(result.root->totalFiles, 3 * depth);
      EXPECT_EQ(result.root->totalLogical, 300 * depth);
      EXPECT_LE(sink.mostDescriptors, before + 512 + std::size_t{4} * threads);
      // One worker goes straight down: the bound is reached, and the other folders are opened by path.
      EXPECT_TRUE(threads > 1 || sink.mostDescriptors >= before + 512) << sink.mostDescriptors;
      EXPECT_EQ(openDescriptors(), before);
    }
  });
}

}  // namespace
}  // namespace quon::test
