// How an index comes into being or does not: with many producers, cancelled, on a full disk, beside what
// killed programs have left.
#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "linux_fs/LinuxFiles.h"
#include "platform/Threads.h"
#include "store/FolderScan.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"
#include "support/ChildProcess.h"
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
SampleTree treeOf(int files, std::string root = "/sample") {
  SampleTree tree(std::move(root));
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

TEST(Writing, LeavesNothingWhenItIsAbortedOrDropped) {
  const TempFolder top;
  const SampleTree tree = treeOf(1000);
  const std::string url = ScanStore::canonicalURL(top.path, tree.path);
  {
    ScanStore store(linuxPlatform(), url);
    tree.record(store);
    ASSERT_EQ(namesIn(top.path).size(), 1U);
    store.abort();
    EXPECT_EQ(namesIn(top.path), kNothing);
  }
  {
    ScanStore store(linuxPlatform(), url);
    tree.record(store);
  }
  EXPECT_EQ(namesIn(top.path), kNothing);
}

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
        store.record(*folders[at], batchOf({{name, at, 1, 1}, {"second", 1, 1, 1}}));
        if (++recorded == kMostWaiting) recorded.notify_all();
      }
    });
  }
  // Every producer now fills the queue or waits at its end, for the writer has not begun.
  for (std::size_t seen = recorded; seen < kMostWaiting; seen = recorded) recorded.wait(seen);
  EXPECT_EQ(recorded, kMostWaiting) << "the queue is bounded";
  threads.opening.set_value();
  for (std::thread& producer : producers) producer.join();
  EXPECT_EQ(recorded, folders.size());
  store.finish(tree.path, 1, figuresOf(tree), 0, 0);

  RawIndex index(store.finalURL());
  const std::string count = std::to_string(folders.size());
  const std::string sum = std::to_string(folders.size() * (folders.size() - 1) / 2);
  EXPECT_EQ(index.rows("SELECT COUNT(*), SUM(logical) FROM files WHERE name <> 'second'"),
            (std::vector<RawIndex::Row>{{count, sum}}));
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM files"), std::to_string(2 * folders.size()));
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM dirs"), std::to_string(folders.size() + 1));
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM links l JOIN dirs d ON d.id = l.dir "
                        "WHERE l.name = 'f' || d.name AND l.fileid = CAST(d.name AS INTEGER)"),
            count);
  EXPECT_EQ(index.value("SELECT COUNT(*) FROM dirs WHERE parent >= id"), "0");
}

TEST(Writing, AnAbortFreesTheProducersThatWait) {
  const TempFolder top;
  SampleTree tree;
  GatedThreads threads(linuxPlatform());
  const Platform platform{linuxPlatform().directories, linuxPlatform().files, threads};
  ScanStore store(platform, ScanStore::canonicalURL(top.path, tree.path));
  std::thread producer([&] {
    for (int at = 0; at < 40000; ++at) store.record(tree.root(), {});
  });
  std::thread opening([&] { threads.opening.set_value(); });
  store.abort();
  producer.join();
  opening.join();
  EXPECT_EQ(namesIn(top.path), kNothing);
}

TEST(Interrupt, MakesFinishFailAndLeavesNothing) {
  const TempFolder top;
  for (const int files : {1, 200000}) {
    const SampleTree tree = treeOf(files);
    ScanStore store(linuxPlatform(), ScanStore::canonicalURL(top.path, tree.path));
    tree.record(store);
    std::thread other([&] { store.interrupt(); });
    other.join();
    EXPECT_THROW(store.finish(tree.path, 1, figuresOf(tree), 0, 0), StoreError) << files << " files";
    EXPECT_EQ(namesIn(top.path), kNothing);
  }
}

TEST(Interrupt, OfAScanLeavesEitherAResultOrNothing) {
  const TempFolder top;
  for (int at = 0; at < 50; ++at) (void)top.file("tree/" + std::to_string(at) + "/x", 1);
  const std::string index = top.folder("index");
  for (int round = 0; round <= 51; ++round) {
    FolderScan scan(linuxPlatform(), {.root = top.at("tree"), .threads = 2, .indexDirectory = index});
    std::thread other([&] {
      while (scan.progress().dirs < static_cast<std::uint64_t>(round)) std::this_thread::yield();
      scan.cancel();
    });
    const FolderScan::Outcome outcome = scan.run();
    other.join();
    if (outcome.cancelled) {
      EXPECT_EQ(outcome.index, "");
      EXPECT_EQ(namesIn(index), kNothing);
    } else {
      EXPECT_EQ(ScanStore::load(outcome.index, top.at("tree"), 1).result.root->totalDirs, 50U);
      fs::remove(outcome.index);
    }
  }
}

/// The system's files, but for a call when an index has been moved into place.
class WatchedFiles final : public LinuxFiles {
 public:
  explicit WatchedFiles(std::function<void()> callback) : afterMove(std::move(callback)) {}

  void replace(const std::string& from, const std::string& to) const override {
    LinuxFiles::replace(from, to);
    afterMove();
  }

 private:
  const std::function<void()> afterMove;
};

TEST(Interrupt, OfAScanBeforeItsIndexStandsCancelsIt) {
  const TempFolder top;
  (void)top.file("tree/x", 1);
  std::atomic<FolderScan*> running{nullptr};
  GatedThreads threads(linuxPlatform());
  threads.opening.set_value();
  threads.afterWriter = [&] { running.load()->cancel(); };
  const Platform platform{linuxPlatform().directories, linuxPlatform().files, threads};
  FolderScan scan(platform, {.root = top.at("tree"), .indexDirectory = top.folder("index")});
  running = &scan;
  const FolderScan::Outcome outcome = scan.run();
  EXPECT_TRUE(outcome.cancelled);
  EXPECT_EQ(outcome.index, "");
  EXPECT_EQ(namesIn(top.at("index")), kNothing);
}

TEST(Interrupt, OfAScanWhoseIndexStandsComesTooLate) {
  const TempFolder top;
  (void)top.file("tree/x", 1);
  std::atomic<FolderScan*> running{nullptr};
  const WatchedFiles files([&] { running.load()->cancel(); });
  const Platform platform{linuxPlatform().directories, files, linuxPlatform().threads};
  FolderScan scan(platform, {.root = top.at("tree"), .indexDirectory = top.folder("index")});
  running = &scan;
  const FolderScan::Outcome outcome = scan.run();
  EXPECT_FALSE(outcome.cancelled);
  EXPECT_EQ(outcome.notSaved, "");
  EXPECT_EQ(ScanStore::load(outcome.index, top.at("tree"), 1).result.root->totalFiles, 1U);
}

/// What a new build does to an earlier index when it fails within `body`, which ends in a state that fails
/// it.
void expectEarlierSurvives(const std::string& top, const std::string& reason,
                           const std::function<void()>& body) {
  const std::string root = top + "/tree";
  const auto scanned = [&] {
    FolderScan scan(linuxPlatform(), {.root = root, .indexDirectory = top + "/index"});
    return scan.run();
  };
  const FolderScan::Outcome earlier = scanned();
  ASSERT_EQ(earlier.notSaved, "");
  const std::string bytes = readBytes(earlier.index);
  body();
  const FolderScan::Outcome failed = scanned();
  EXPECT_EQ(failed.index, "");
  EXPECT_THAT(failed.notSaved, HasSubstr(reason));
  EXPECT_FALSE(failed.cancelled);
  EXPECT_EQ(differences(*failed.result.root, *earlier.result.root), "");
  EXPECT_EQ(readBytes(earlier.index), bytes);
  EXPECT_EQ(namesIn(top + "/index").size(), 1U) << "nothing else is left";
}

TEST(Failure, OfAFullDiskIsToldAndKeepsTheEarlierIndex) {
  const TempFolder top;
  for (int at = 0; at < 2000; ++at) (void)top.file("tree/" + std::string(200, 'n') + std::to_string(at), 0);
  const std::string index = top.folder("index");
  inPrivateMounts([&] {
    ASSERT_EQ(::mount("tmpfs", index.c_str(), "tmpfs", 0, "size=2m,mode=0700"), 0);
    expectEarlierSurvives(top.path, "full", [&] {
      const auto left = fs::space(index).available;
      ASSERT_LT(left, 2U << 20U);
      ASSERT_EQ(::mount("tmpfs", index.c_str(), "tmpfs", MS_REMOUNT,
                        ("size=" + std::to_string((2U << 20U) - left + 65536)).c_str()),
                0);
    });
  });
}

TEST(Failure, OfAWriteIsToldAndKeepsTheEarlierIndex) {
  const TempFolder top;
  for (int at = 0; at < 2000; ++at) (void)top.file("tree/" + std::string(200, 'n') + std::to_string(at), 0);
  inChild([&] {
    expectEarlierSurvives(top.path, "sqlite: ", [] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{100000, 100000};
      ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    });
  });
}

TEST(Failure, OfAFolderThatCannotBeWrittenIsToldAndKeepsTheEarlierIndex) {
  const TempFolder top;
  ASSERT_EQ(::chmod(top.path.c_str(), 0777), 0);
  asOrdinaryUser([&] {
    (void)top.file("tree/x", 1);
    expectEarlierSurvives(top.path, "Permission denied",
                          [&] { ASSERT_EQ(::chmod(top.at("index").c_str(), 0500), 0); });
    ASSERT_EQ(::chmod(top.at("index").c_str(), 0700), 0);
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

TEST(StaleBuilds, AreSweptAfterAnHourAndOnlyThoseOfTheSameIndex) {
  const TempFolder top;
  const std::string own = ScanStore::canonicalURL("", "/x").substr(1);
  const std::string other = ScanStore::canonicalURL("", "/y").substr(1);
  const std::int64_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  const auto leave = [&](const std::string& name, std::int64_t age) {
    const std::array<timespec, 2> times{{{now - age, 0}, {now - age, 0}}};
    ASSERT_EQ(::utimensat(AT_FDCWD, top.file(name, 1).c_str(), times.data(), 0), 0);
  };
  leave(own + ".building-old", 3700);
  leave(own + ".building-older", 400000000);
  leave(own + ".building-young", 3500);
  leave(own + ".building-of the future", -7200);
  leave(other + ".building-old", 90000);
  leave(own, 90000);
  ScanStore store(linuxPlatform(), top.at(own));
  store.abort();
  std::vector<std::string> expected{own, own + ".building-young", own + ".building-of the future",
                                    other + ".building-old"};
  std::ranges::sort(expected);
  EXPECT_EQ(namesIn(top.path), expected);
}

/// Changes the index in a child that is killed when its changes stand in the file and the way back beside it.
void killWhileChanging(const std::string& url, const std::string& script) {
  std::array<int, 2> told{};
  ASSERT_EQ(::pipe(told.data()), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    RawIndex index(url);
    index.exec(script);
    if (::write(told[1], "x", 1) == 1) ::pause();
    ::_exit(1);
  }
  ::close(told[1]);
  char byte = 0;
  EXPECT_EQ(::read(told[0], &byte, 1), 1);
  ::close(told[0]);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
}

class Leftover : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(Leftover, OfAKilledWriterDoesNotReachTheNewIndex) {
  const auto [suffix, script] = GetParam();
  for (const bool oldIndexIsGone : {false, true}) {
    const TempFolder top;
    const std::string url = treeOf(20000).save(top.path);
    killWhileChanging(url, script);
    ASSERT_GT(fs::file_size(url + suffix), 4096U) << "there is no way back to be followed by mistake";
    if (oldIndexIsGone) fs::remove(url);
    const SampleTree tree = treeOf(20001);
    ASSERT_EQ(tree.save(top.path), url);
    EXPECT_EQ(differences(*ScanStore::load(url, tree.path, ~0ULL).result.root, tree.root()), "");
    EXPECT_EQ(RawIndex(url).value("PRAGMA integrity_check"), "ok");
    EXPECT_EQ(namesIn(top.path).size(), 1U);
  }
}

TEST_P(Leftover, OfAKilledWriterIsSettledByReading) {
  const TempFolder top;
  const auto [suffix, script] = GetParam();
  const SampleTree tree = treeOf(20000);
  const std::string url = tree.save(top.path);
  killWhileChanging(url, script);
  const Loaded loaded = ScanStore::load(url, tree.path, ~0ULL);
  // The journal's transaction had not been committed, that of the log had.
  const std::uint64_t added = suffix == std::string("-wal") ? 20000 : 0;
  EXPECT_EQ(loaded.result.root->totalLogical, tree.root().totalLogical + added);
}

INSTANTIATE_TEST_SUITE_P(
    , Leftover,
    testing::Values(std::pair("-journal",
                              "PRAGMA cache_size = 5; PRAGMA cache_spill = 1; BEGIN IMMEDIATE;"
                              "UPDATE files SET logical = logical + 1"),
                    std::pair("-wal",
                              "PRAGMA journal_mode = WAL; PRAGMA wal_autocheckpoint = 0;"
                              "UPDATE files SET logical = logical + 1")),
    [](const auto& test) { return test.index == 0 ? "Journal" : "WriteAheadLog"; });

}  // namespace
}  // namespace quon::test
