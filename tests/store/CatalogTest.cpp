// The list of saved indexes.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <span>
#include <sys/mount.h>
#include <tuple>
#include <utility>

#include "base/Path.h"
#include "linux_fs/LinuxFiles.h"
#include "store/FolderScan.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"
#include "support/ChildProcess.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using Status = IndexEntry::Status;

/// The index of an empty tree, scanned at a time of the test's choice.
std::string saveAt(const std::string& folder, const std::string& root, const std::string& scannedAt) {
  std::string url = SampleTree(root).save(folder);
  RawIndex(url).exec("UPDATE meta SET value = '" + scannedAt + "' WHERE key = 'scannedAt'");
  return url;
}

/// Scans the root; the path of its index.
std::string scan(const std::string& root, const std::string& index) {
  return FolderScan(linuxPlatform(), {.root = RootPath(root), .indexDirectory = index}).run().index;
}

std::map<std::string, IndexEntry> byRoot(const std::vector<IndexEntry>& entries) {
  std::map<std::string, IndexEntry> found;
  for (const IndexEntry& entry : entries) found[entry.root] = entry;
  return found;
}

TEST(Catalog, ListsEveryIndexNewestFirstAndNoBuilds) {
  const TempFolder top;
  const std::string index = top.folder("index");
  const std::string first = saveAt(index, top.folder("live"), "1000.25");
  const std::string second = saveAt(index, top.at("gone"), "2000");
  const std::string third = saveAt(index, top.file("no folder", 1), "1500.5");
  writeBytes(index + "/garbage.sqlite", std::string(9000, 'q'));
  writeBytes(index + "/notes.txt", "no index");
  writeBytes(first + "-journal", "no index");
  fs::create_directory(index + "/folder.sqlite");
  const std::string incomplete = saveAt(index, top.folder("incomplete"), "5");
  RawIndex(incomplete).exec("UPDATE meta SET value = '0' WHERE key = 'complete'");
  const ScanStore build(linuxPlatform(), ScanStore::canonicalURL(index, RootPath("/build")));

  const auto entries = IndexCatalog::list(linuxPlatform(), index);
  ASSERT_EQ(entries.size(), 6U);
  const auto sound = [](const std::string& url, const std::string& root, double scannedAt, Status status) {
    return IndexEntry{url, root, fs::file_size(url), scannedAt, status};
  };
  EXPECT_TRUE(entries[0] == sound(second, top.at("gone"), 2000, Status::orphaned));
  EXPECT_TRUE(entries[1] == sound(third, top.at("no folder"), 1500.5, Status::orphaned));
  EXPECT_TRUE(entries[2] == sound(first, top.at("live"), 1000.25, Status::live));
  for (const IndexEntry& entry : std::span(entries).subspan(3)) {
    EXPECT_EQ(entry.root, "") << entry.url;
    EXPECT_EQ(entry.status, Status::unusable) << entry.url;
  }
  EXPECT_TRUE(IndexCatalog::list(linuxPlatform(), top.at("absent")).empty());
}

TEST(Catalog, KnowsWhichRootsOthersCover) {
  const TempFolder top;
  const std::string index = top.folder("index");
  const std::string outer = top.folder("outer");
  const std::string inner = top.folder("outer/inner");
  for (const std::string& root :
       {outer, inner, top.folder("outermost"), top.at("outer/gone"), top.at("gone"), top.at("gone/below")}) {
    (void)saveAt(index, root, "1");
  }
  auto found = byRoot(IndexCatalog::list(linuxPlatform(), index));
  EXPECT_FALSE(found[outer].covered);
  EXPECT_TRUE(found[inner].covered);
  EXPECT_FALSE(found[top.at("outermost")].covered);
  EXPECT_TRUE(found[top.at("outer/gone")].covered);
  EXPECT_FALSE(found[top.at("gone/below")].covered) << "only a live index covers";
}

TEST(Catalog, DistinguishesAbsentVolumesFromDeletedFolders) {
  const TempFolder top;
  const std::string index = top.folder("index");
  inPrivateMounts([&] {
    // Whatever this machine has mounted there is out of sight.
    for (const char* parent : {"/mnt", "/media", "/run"}) mountTmpfs(parent);
    for (const char* volume : {"/mnt/here", "/media/here", "/run/media/user/here", "/media/user/here"}) {
      fs::create_directories(volume);
      mountTmpfs(volume);
    }
    const std::map<std::string, Status> expected{{"/mnt/away", Status::offline},
                                                 {"/mnt/here", Status::live},
                                                 {"/mnt/here/deleted", Status::orphaned},
                                                 {"/media/user/away/x", Status::offline},
                                                 {"/media/user/here/x", Status::orphaned},
                                                 {"/run/media/user/away", Status::offline},
                                                 {"/run/media/user/here/x", Status::orphaned},
                                                 {"/mntx/deleted", Status::orphaned},
                                                 {"/home/deleted", Status::orphaned}};
    const std::vector<std::string> mounted = linuxPlatform().files.mountPoints();
    for (const auto& [root, status] : expected) {
      std::error_code none;
      const auto volume = linuxPlatform().files.facts(IndexCatalog::mountPointOf(root, mounted), none);
      RawIndex(saveAt(index, root, "1"))
          .exec("UPDATE meta SET value = '" + std::to_string(volume.value().device) +
                "' WHERE key = 'rootDev'");
    }
    auto found = byRoot(IndexCatalog::list(linuxPlatform(), index));
    ASSERT_EQ(found.size(), expected.size());
    for (const auto& [root, status] : expected) EXPECT_EQ(found[root].status, status) << root;
  });
}

TEST(Catalog, CollectsOrphansAndStaleBuildsAndNothingElse) {
  const TempFolder top;
  inPrivateMounts([&] {
    const std::string index = top.folder("index");
    // A disk that is mounted by hand, anywhere.
    mountTmpfs(top.folder("disk"));
    const std::string unplugged = scan(top.folder("disk/photos"), index);
    const std::string live = scan(top.folder("live"), index);
    const std::string orphaned = scan(top.folder("deleted"), index);
    writeBytes(orphaned + "-wal", "");
    writeBytes(orphaned + "-shm", std::string(30, 'x'));
    const auto orphanedBytes = fs::file_size(orphaned) + 30;
    ASSERT_EQ(::umount2(top.at("disk").c_str(), MNT_DETACH), 0);
    fs::remove(top.at("deleted"));
    const std::string unusable = top.file("index/broken.sqlite", 700);
    const std::string young = top.file("index/a.sqlite.building-1", 30);
    const std::string stale = top.file("index/b.sqlite.building-2", 40);
    fs::last_write_time(stale, fs::file_time_type::clock::now() - std::chrono::hours(2));

    const IndexCatalog::Collected collected = IndexCatalog::collectGarbage(linuxPlatform(), index);
    EXPECT_EQ(collected.indexes, 1U);
    EXPECT_EQ(collected.bytes, orphanedBytes + 40);
    for (const std::string& kept : {unplugged, live, unusable, young}) EXPECT_TRUE(fs::exists(kept)) << kept;
    for (const std::string& gone : {orphaned, orphaned + "-wal", orphaned + "-shm", stale}) {
      EXPECT_FALSE(fs::exists(gone)) << gone;
    }
    EXPECT_EQ(byRoot(IndexCatalog::list(linuxPlatform(), index))[top.at("disk/photos")].status,
              Status::offline);
    EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), index).bytes, 0U);
    EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), top.at("none")).indexes, 0U);
  });
}

void expectKeptAsOffline(const std::string& index, const std::string& saved) {
  EXPECT_EQ(IndexCatalog::list(linuxPlatform(), index).at(0).status, Status::offline);
  EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), index).indexes, 0U);
  EXPECT_TRUE(fs::exists(saved));
}

TEST(Catalog, KeepsTheIndexWhenAnotherVolumeIsMountedInItsPlace) {
  const TempFolder top;
  inPrivateMounts([&] {
    mountTmpfs(top.folder("slot"));
    const std::string saved = scan(top.folder("slot/photos"), top.folder("index"));
    mountTmpfs(top.folder("other"));  // while the first is mounted: so it has another number
    ASSERT_EQ(::umount2(top.at("slot").c_str(), MNT_DETACH), 0);
    bindMount(top.at("other"), top.at("slot"));
    expectKeptAsOffline(top.at("index"), saved);
  });
}

TEST(Catalog, KnowsTheVolumeBehindALink) {
  const TempFolder top;
  inPrivateMounts([&] {
    mountTmpfs(top.folder("disk"));
    top.folder("disk/photos/2020");
    fs::create_directory_symlink(top.at("disk/photos"), top.at("link"));
    const std::string saved = scan(top.at("link/2020"), top.folder("index"));
    ASSERT_EQ(::umount2(top.at("disk").c_str(), MNT_DETACH), 0);
    expectKeptAsOffline(top.at("index"), saved);
  });
}

TEST(Catalog, NeverCollectsAnIndexAsABuild) {
  const TempFolder top;
  const std::string index = top.folder("index");
  const std::string root = top.folder("notes.sqlite.building");
  const std::string saved = scan(root, index);
  const std::string journal = top.file("index/a.sqlite.building-1.sqlite-journal", 10);
  const std::string stale = top.file("index/" + fs::path(saved).filename().string() + ".building-1", 40);
  for (const std::string& file : {saved, journal, stale}) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(2));
  }
  EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), index).bytes, 40U);
  EXPECT_TRUE(fs::exists(saved));
  EXPECT_TRUE(fs::exists(journal)) << "without it the index would count as whole";
  {
    const ScanStore build(linuxPlatform(), saved);
    EXPECT_TRUE(fs::exists(saved)) << "removed by a scan that may yet be cancelled";
  }
  EXPECT_EQ(byRoot(IndexCatalog::list(linuxPlatform(), index))[root].status, Status::live);
}

/// A root that is made again, and its index with it, after a collection has checked it.
TEST(Catalog, ChecksAgainBeforeItRemoves) {
  class Files final : public LinuxFiles {
   public:
    explicit Files(std::string path) : late(std::move(path)) {}
    std::optional<PathFacts> facts(const std::string& path, std::error_code& error) const override {
      if (path != late || std::exchange(asked, true)) return LinuxFiles::facts(path, error);
      error = std::make_error_code(std::errc::no_such_file_or_directory);
      return std::nullopt;
    }

   private:
    const std::string late;
    mutable bool asked = false;
  };
  const TempFolder top;
  const std::string root = top.folder("root");
  const std::string saved = scan(root, top.folder("index"));
  const Files files(root);
  const Platform platform{linuxPlatform().directories, files, linuxPlatform().threads};
  EXPECT_EQ(IndexCatalog::collectGarbage(platform, top.at("index")).indexes, 0U);
  EXPECT_TRUE(fs::exists(saved));
}

/// Counts the questions about one folder and all below it, as a volume there would that does not answer.
class SilentVolume final : public LinuxFiles {
 public:
  explicit SilentVolume(std::string path) : volume(std::move(path)) {}
  std::optional<PathFacts> facts(const std::string& path, std::error_code& error) const override {
    if (isInside(path, volume)) ++questions;
    return LinuxFiles::facts(path, error);
  }
  std::vector<FolderItem> list(const std::string& folder) const override {
    ++questions;
    return LinuxFiles::list(folder);
  }
  mutable int questions = 0;

 private:
  const std::string volume;
};

TEST(NearestIndex, IsThatOfTheClosestFolderAboveAndAsksAboutNoOtherRoot) {
  const TempFolder top;
  const std::string index = top.folder("index");
  const std::string outer = top.folder("outer");
  const std::string inner = top.folder("outer/inner");
  const std::string damaged = top.folder("outer/damaged");
  const std::string silent = top.folder("silent");
  for (const std::string& root : {outer, inner, top.folder("outermost"), silent, silent + "/below"}) {
    (void)saveAt(index, root, "7");
  }
  writeBytes(ScanStore::canonicalURL(index, RootPath(damaged)), "no index");
  fs::copy_file(ScanStore::canonicalURL(index, RootPath(inner)),
                ScanStore::canonicalURL(index, RootPath(outer + "/copied")));
  const SilentVolume files(silent);
  const Platform platform{linuxPlatform().directories, files, linuxPlatform().threads};
  const auto nearest = [&](const std::string& path) { return IndexCatalog::nearest(platform, index, path); };
  for (const auto& [path, root, status] :
       {std::tuple(inner, inner, Status::live), std::tuple(inner + "/a/b", inner, Status::live),
        std::tuple(outer + "/innermost", outer, Status::live), std::tuple(outer, outer, Status::live),
        std::tuple(damaged + "/x", damaged, Status::unusable)}) {
    const std::optional<IndexEntry> found = nearest(path);
    ASSERT_TRUE(found) << path;
    EXPECT_EQ(found->root, root) << path;
    EXPECT_EQ(found->status, status) << path;
    EXPECT_EQ(found->url, ScanStore::canonicalURL(index, RootPath(root)));
    EXPECT_EQ(found->scannedAt, status == Status::live ? 7 : 0);
  }
  EXPECT_EQ(nearest(outer + "/copied/x")->root, outer) << "no folder is there for the copied index";
  EXPECT_FALSE(nearest(top.path));
  EXPECT_FALSE(nearest("/"));
  EXPECT_EQ(files.questions, 0);
  (void)saveAt(index, "/", "7");
  EXPECT_EQ(nearest(top.path)->root, "/");
  EXPECT_EQ(nearest(silent)->root, silent);
  EXPECT_GT(files.questions, 0) << "the test would not have seen a question";
}

}  // namespace
}  // namespace quon::test
