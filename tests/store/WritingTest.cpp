// How an index is made, or not: with many producers, cancelled, on a full disk, beside what killed programs
// left.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "linux_fs/LinuxFiles.h"
#include "platform/Threads.h"
#include "store/FolderScan.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"
#include "support/ChildProcess.h"
#include "support/HookedDirectories.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder))
    names.push_back(entry.path().filename());
  std::ranges::sort(names);
  return names;
}

const std::vector<std::string> kNothing;

/// One folder of so many files, whose sizes count up from 1.
SampleTree treeOf(int files) {
  SampleTree tree;
  for (int at = 1; at <= files; ++at) {
    tree.file(tree.root(), {"file" + std::to_string(at), static_cast<std::uint64_t>(at), 512, at});
  }
  return tree;
}

WalkResult figuresOf(const SampleTree& tree) {
  WalkResult figures;
  figures.root = tree.shared();
  return figures;
}

/// The threads of the system, each of which begins once the gate has opened.
class GatedThreads final : public ThreadService {
 public:
  explicit GatedThreads(const Platform& platform) : real(platform.threads) {}
  [[nodiscard]] std::unique_ptr<RunningThread> start(const std::string& name, std::size_t stackBytes,
                                                     std::function<void()> body) const override {
    return real.start(name, stackBytes, [this, name, gate = opened, body = std::move(body)] {
      gate.wait();
      body();
      if (name == "scanstore-writer" && afterWriter) afterWriter();
    });
  }
  [[nodiscard]] unsigned activeProcessors() const override { return real.activeProcessors(); }

  std::promise<void> opening;
  std::function<void()> afterWriter;  ///< on the index writer's thread, when it has nothing left to do

 private:
  const ThreadService& real;
  std::shared_future<void> opened = opening.get_future().share();
};

TEST(Writing, ManyProducersWaitForASlowWriterAndLoseNothing) {
  constexpr std::size_t kMostWaiting = 32768;
  constexpr int kProducers = 4;
  constexpr std::size_t kFoldersEach = 12000;
  const TempFolder top;
  SampleTree tree;
  std::vector<DirNode*> folders;
  for (std::size_t at = 0; at < kProducers * kFoldersEach; ++at) {
    folders.push_back(&tree.folder(std::to_string(at), at < 10 ? nullptr : folders[at / 2]));
  }
  GatedThreads threads(linuxPlatform());
  const Platform platform{linuxPlatform().directories, linuxPlatform().files, threads};
  ScanStore store(platform, ScanStore::canonicalURL(top.path, tree.path));
  std::atomic<std::size_t> recorded{0};
  std::vector<std::thread> producers;
  for (std::size_t first = 0; first < kProducers; ++first) {
    producers.emplace_back([&, first] {
      for (std::size_t at = first; at < folders.size(); at += kProducers) {
        const std::string name = "f" + std::to_string(at);
        store.recordLink(at, *folders[at], name, true);
        store.record(*folders[at], batchOf({{name, at, 1, 1}}));
        if (++recorded == kMostWaiting) recorded.notify_all();
      }
    });
  }
  // Every producer now fills the queue or waits at its end: the writer has not begun.
  for (std::size_t seen = recorded; seen < kMostWaiting; seen = recorded) recorded.wait(seen);
  EXPECT_EQ(recorded, kMostWaiting) << "the queue is bounded";
  threads.opening.set_value();
  for (std::thread& producer : producers) producer.join();
  store.finish(tree.path, 1, figuresOf(tree), 0, 0);

  RawIndex index(store.finalURL());
  const std::string count = std::to_string(folders.size());
  const std::string sum = std::to_string(folders.size() * (folders.size() - 1) / 2);
  EXPECT_EQ(index.rows("SELECT COUNT(*), SUM(logical) FROM files"),
            (std::vector<RawIndex::Row>{{count, sum}}));
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM dirs"), std::to_string(folders.size() + 1));
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM links l JOIN dirs d ON d.id = l.dir "
                        "WHERE l.name = 'f' || d.name AND l.fileid = CAST(d.name AS INTEGER)"),
            count);
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM dirs WHERE parent >= id"), "0");
}

/// True when the thread of this process waits for another one.
bool waits(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string line{std::istreambuf_iterator<char>(file), {}};
  return line.find(") S ") != std::string::npos;
}

TEST(Writing, AnAbortFreesTheProducersThatWait) {
  constexpr int kLinks = 200000;  // thrice what the queue takes

  const TempFolder top;
  SampleTree tree;
  GatedThreads threads(linuxPlatform());
  const Platform platform{linuxPlatform().directories, linuxPlatform().files, threads};
  ScanStore store(platform, ScanStore::canonicalURL(top.path, tree.path));
  std::atomic<pid_t> thread{0};
  std::atomic<int> recorded{0};
  std::thread producer([&] {
    thread = ::gettid();
    for (; recorded < kLinks; ++recorded) store.recordLink(1, tree.root(), "link", recorded == 0);
  });
  while (recorded < kLinks && (recorded < 1000 || !waits(thread))) std::this_thread::yield();
  EXPECT_LT(recorded, kLinks) << "the queue is bounded";
  std::thread opening([&] { threads.opening.set_value(); });
  store.abort();
  producer.join();
  opening.join();
  EXPECT_EQ(namesIn(top.path), kNothing);
}

/// A scan of the folder through these services, which outlive it.
FolderScan scanOf(const std::string& root, const std::string& index,
                  const Platform& platform = linuxPlatform()) {
  return {platform, {.root = RootPath(root), .indexDirectory = index}};
}

TEST(Interrupt, MakesFinishFailAndLeavesNothing) {
  const TempFolder top;
  const SampleTree tree = treeOf(200000);
  ScanStore store(linuxPlatform(), ScanStore::canonicalURL(top.path, tree.path));
  tree.record(store);
  std::thread(&ScanStore::interrupt, &store).join();
  EXPECT_THROW(store.finish(tree.path, 1, figuresOf(tree), 0, 0), StoreError);
  EXPECT_EQ(namesIn(top.path), kNothing);
}

/// Scans cancelled at each of their moments: as each folder is opened, when all rows are written, and when
/// the index is in place.
class CancelledScan : public testing::Test {
 protected:
  static constexpr int kFolders = 50;

  CancelledScan() {
    for (int at = 0; at < kFolders; ++at) (void)top.file("tree/" + std::to_string(at) + "/x", 1);
    earlier = scanOf(root, index).run().index;
    before = readBytes(earlier);
    (void)top.file("tree/new", 1);
  }

  void expectCancelled(const FolderScan::Outcome& outcome, const std::string& moment) const {
    EXPECT_TRUE(outcome.cancelled) << moment;
    EXPECT_EQ(outcome.index, "") << moment;
    EXPECT_EQ(namesIn(index), std::vector<std::string>{fs::path(earlier).filename()}) << moment;
    EXPECT_EQ(readBytes(earlier), before) << moment;
  }

  const TempFolder top;
  const std::string root = top.folder("tree");
  const std::string index = top.folder("index");
  std::string earlier;
  std::string before;
  std::atomic<FolderScan*> running{nullptr};
};

TEST_F(CancelledScan, KeepsTheEarlierIndexWhicheverFolderItReached) {
  for (int last = 1; last <= kFolders + 1; ++last) {
    std::atomic<int> opened{0};
    const HookedDirectories directories(linuxPlatform().directories, [&](const std::string&) {
      if (++opened == last) running.load()->cancel();
    });
    const Platform platform{directories, linuxPlatform().files, linuxPlatform().threads};
    FolderScan scan = scanOf(root, index, platform);
    running = &scan;
    expectCancelled(scan.run(), "folder " + std::to_string(last));
    EXPECT_GE(opened, last);
  }
}

TEST_F(CancelledScan, KeepsTheEarlierIndexWhicheverFolderItRanOutOfMemoryAt) {
  for (int last = 1; last <= kFolders + 1; ++last) {
    std::atomic<int> opened{0};
    const HookedDirectories directories(linuxPlatform().directories, [&](const std::string&) {
      if (++opened == last) throw std::bad_alloc();
    });
    const Platform platform{directories, linuxPlatform().files, linuxPlatform().threads};
    EXPECT_THROW((void)scanOf(root, index, platform).run(), std::bad_alloc);
    EXPECT_EQ(namesIn(index), std::vector<std::string>{fs::path(earlier).filename()}) << last;
    EXPECT_EQ(readBytes(earlier), before) << last;
  }
}

TEST_F(CancelledScan, KeepsTheEarlierIndexWhenItsRowsAreWritten) {
  GatedThreads threads(linuxPlatform());
  threads.opening.set_value();
  threads.afterWriter = [&] { running.load()->cancel(); };
  const Platform platform{linuxPlatform().directories, linuxPlatform().files, threads};
  FolderScan scan = scanOf(root, index, platform);
  running = &scan;
  expectCancelled(scan.run(), "rows written");
}

TEST_F(CancelledScan, IsNotCancelledOnceItsIndexIsInPlace) {
  class Files final : public LinuxFiles {
   public:
    explicit Files(const std::atomic<FolderScan*>& running) : scan(running) {}
    void replace(const std::string& from, const std::string& to) const override {
      LinuxFiles::replace(from, to);
      scan.load()->cancel();
    }

   private:
    const std::atomic<FolderScan*>& scan;
  };
  const Files files(running);
  const Platform platform{linuxPlatform().directories, files, linuxPlatform().threads};
  FolderScan scan = scanOf(root, index, platform);
  running = &scan;
  const FolderScan::Outcome outcome = scan.run();
  EXPECT_FALSE(outcome.cancelled);
  EXPECT_EQ(outcome.notSaved, "");
  EXPECT_EQ(ScanStore::load(outcome.index, RootPath(root)).result.root->totalFiles, kFolders + 1U);
}

TEST(Writing, ASandboxWithoutProcessInformationLosesOnlyTheMountPoint) {
  const TempFolder top;
  (void)top.file("tree/file", 500);
  inPrivateMounts([&] {
    mountTmpfs("/proc");
    const FolderScan::Outcome outcome = scanOf(top.at("tree"), top.at("index")).run();
    ASSERT_EQ(outcome.notSaved, "");
    const RootPath root(top.at("tree"));
    EXPECT_EQ(ScanStore::load(outcome.index, root).result.root->totalLogical, 500U);
    EXPECT_FALSE(ScanStore::meta(outcome.index).contains("mountPoint"));
    EXPECT_EQ(IndexCatalog::nearest(linuxPlatform(), top.at("index"), root.path())->root, root.path());
  });
}

/// A full disk, as seen from the program, is tested with the commands.
TEST(Failure, OfAWriteIsReportedAndKeepsTheEarlierIndex) {
  const TempFolder top;
  for (int at = 0; at < 2000; ++at) (void)top.file("tree/" + std::string(200, 'n') + std::to_string(at), 0);
  inChild([&] {
    const FolderScan::Outcome earlier = scanOf(top.at("tree"), top.at("index")).run();
    const std::string bytes = readBytes(earlier.index);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100000, 100000};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    const FolderScan::Outcome failed = scanOf(top.at("tree"), top.at("index")).run();
    EXPECT_EQ(failed.index, "");
    EXPECT_THAT(failed.notSaved, HasSubstr("sqlite: "));
    EXPECT_FALSE(failed.cancelled);
    EXPECT_EQ(differences(*failed.result.root, *earlier.result.root), "");
    EXPECT_EQ(readBytes(earlier.index), bytes);
    EXPECT_EQ(namesIn(top.at("index")).size(), 1U) << "nothing else is left";
  });
}

TEST(Failure, OfTheMoveIntoPlaceLeavesNoBuild) {
  const TempFolder top;
  const SampleTree tree = treeOf(3);
  const std::string url = ScanStore::canonicalURL(top.path, tree.path);
  (void)top.file(url.substr(top.path.size() + 1) + "/in the way", 1);
  ScanStore store(linuxPlatform(), url);
  tree.record(store);
  EXPECT_THROW(store.finish(tree.path, 1, figuresOf(tree), 0, 0), StoreError);
  EXPECT_EQ(namesIn(top.path).size(), 1U);
}

/// Changes the index in a child that is killed while its changes are in the file and the journal beside it.
void killWhileChanging(const std::string& url, const std::string& script) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    RawIndex index(url);
    index.exec(script);
    ::raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
}

struct Leftover {
  const char* suffix;
  const char* script;
  std::uint64_t added;  ///< bytes: a journal's transaction was not committed, that of a log was
};
constexpr int kFiles = 20000;
constexpr Leftover kLeftovers[]{{"-journal",
                                 "PRAGMA cache_size = 5; PRAGMA cache_spill = 1; BEGIN IMMEDIATE;"
                                 "UPDATE files SET logical = logical + 1",
                                 0},
                                {"-wal",
                                 "PRAGMA journal_mode = WAL; PRAGMA wal_autocheckpoint = 0;"
                                 "UPDATE files SET logical = logical + 1",
                                 kFiles}};

TEST(KilledWriter, DoesNotReachTheNextIndexAndIsSettledByReading) {
  const SampleTree killed = treeOf(kFiles);
  const SampleTree next = treeOf(kFiles + 1);
  for (const auto& [suffix, script, added] : kLeftovers) {
    for (const bool indexIsGone : {false, true}) {
      const TempFolder top;
      const std::string url = killed.save(top.path);
      killWhileChanging(url, script);
      ASSERT_GT(fs::file_size(url + suffix), 4096U)
          << "nothing is left that could be applied to the next index";
      if (indexIsGone) fs::remove(url);
      ASSERT_EQ(next.save(top.path), url);
      EXPECT_EQ(differences(*ScanStore::load(url, next.path, ~0ULL).result.root, next.root()), "") << suffix;
      EXPECT_EQ(RawIndex(url).value("PRAGMA integrity_check"), "ok") << suffix;
      EXPECT_EQ(namesIn(top.path).size(), 1U) << suffix;
    }
    const TempFolder top;
    const std::string url = killed.save(top.path);
    RawIndex(url).dropTotals();
    killWhileChanging(url, script);
    EXPECT_EQ(ScanStore::load(url, killed.path).result.root->totalLogical,
              killed.root().totalLogical + added);
  }
}

}  // namespace
}  // namespace quon::test
