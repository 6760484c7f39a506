// The list of saved indexes.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/mount.h>

#include "store/FolderScan.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
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
  const std::string url = SampleTree(root).save(folder);
  RawIndex(url).exec("UPDATE meta SET value = '" + scannedAt + "' WHERE key = 'scannedAt'");
  return url;
}

std::map<std::string, IndexEntry> byRoot(const std::vector<IndexEntry>& entries) {
  std::map<std::string, IndexEntry> found;
  for (const IndexEntry& entry : entries) found[entry.root] = entry;
  return found;
}

TEST(Catalog, ListsEveryIndexNewestFirstAndNoBuilds) {
  const TempFolder top;
  const std::string index = top.folder("index");
  const std::string live = top.folder("live");
  const std::string first = saveAt(index, live, "1000.25");
  const std::string second = saveAt(index, top.at("gone"), "2000");
  const std::string third = saveAt(index, top.file("no folder", 1), "1500.5");
  writeBytes(index + "/garbage.sqlite", std::string(9000, 'q'));
  writeBytes(index + "/notes.txt", "no index");
  writeBytes(first + "-journal", "no index");
  fs::create_directory(index + "/folder.sqlite");
  const std::string incomplete = saveAt(index, top.folder("incomplete"), "5");
  RawIndex(incomplete).exec("UPDATE meta SET value = '0' WHERE key = 'complete'");
  const ScanStore build(linuxPlatform(), ScanStore::canonicalURL(index, "/build"));

  const auto entries = IndexCatalog::list(linuxPlatform(), index);
  ASSERT_EQ(entries.size(), 6U);
  EXPECT_EQ(entries[0].url, second);
  EXPECT_EQ(entries[0].root, top.at("gone"));
  EXPECT_EQ(entries[0].status, Status::orphaned);
  EXPECT_EQ(entries[1].url, third);
  EXPECT_EQ(entries[1].status, Status::orphaned);
  EXPECT_EQ(entries[2].url, first);
  EXPECT_EQ(entries[2].root, live);
  EXPECT_EQ(entries[2].scannedAt, 1000.25);
  EXPECT_EQ(entries[2].bytes, fs::file_size(first));
  EXPECT_EQ(entries[2].status, Status::live);
  for (std::size_t at = 3; at < 6; ++at) {
    EXPECT_EQ(entries[at].status, Status::unusable) << entries[at].url;
    EXPECT_EQ(entries[at].scannedAt, 0);
    EXPECT_EQ(entries[at].root, "");
    EXPECT_FALSE(entries[at].covered);
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
  const auto entries = IndexCatalog::list(linuxPlatform(), index);
  auto found = byRoot(entries);
  EXPECT_FALSE(found[outer].covered);
  EXPECT_TRUE(found[inner].covered);
  EXPECT_FALSE(found[top.at("outermost")].covered);
  EXPECT_TRUE(found[top.at("outer/gone")].covered);
  EXPECT_FALSE(found[top.at("gone/below")].covered) << "only a live index covers";

  EXPECT_EQ(IndexCatalog::nearest(entries, inner + "/a/b")->root, inner);
  EXPECT_EQ(IndexCatalog::nearest(entries, inner)->root, inner);
  EXPECT_EQ(IndexCatalog::nearest(entries, outer + "/innermost")->root, outer);
  EXPECT_EQ(IndexCatalog::nearest(entries, top.at("gone/below")), nullptr);
  EXPECT_EQ(IndexCatalog::nearest(entries, top.path), nullptr);
  EXPECT_EQ(IndexCatalog::nearest({}, inner), nullptr);
}

TEST(Catalog, TellsAnAbsentVolumeFromADeletedFolder) {
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
                                                 {"/mnt/away/deep/down", Status::offline},
                                                 {"/mnt/here", Status::live},
                                                 {"/mnt/here/deleted", Status::orphaned},
                                                 {"/mnt/here/deleted/deep", Status::orphaned},
                                                 {"/media/away", Status::offline},
                                                 {"/media/user/away/x", Status::offline},
                                                 {"/media/user/here/x", Status::orphaned},
                                                 {"/run/media/user/away", Status::offline},
                                                 {"/run/media/user/here/x", Status::orphaned},
                                                 {"/mntx/deleted", Status::orphaned},
                                                 {"/home/deleted", Status::orphaned}};
    for (const auto& [root, status] : expected) (void)saveAt(index, root, "1");
    auto found = byRoot(IndexCatalog::list(linuxPlatform(), index));
    ASSERT_EQ(found.size(), expected.size());
    for (const auto& [root, status] : expected) EXPECT_EQ(found[root].status, status) << root;
  });
}

TEST(Catalog, CollectsWhatIsOfNoUseAnyMoreAndNothingElse) {
  const TempFolder top;
  inPrivateMounts([&] {
    const std::string index = top.folder("index");
    const auto scan = [&](const std::string& root) {
      return FolderScan(linuxPlatform(), {.root = root, .indexDirectory = index}).run().index;
    };
    // A disk that is mounted by hand, anywhere.
    mountTmpfs(top.folder("disk"));
    const std::string unplugged = scan(top.folder("disk/photos"));
    const std::string live = scan(top.folder("live"));
    const std::string orphaned = scan(top.folder("deleted"));
    const auto orphanedBytes = fs::file_size(orphaned);
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
    for (const std::string& gone : {orphaned, stale}) EXPECT_FALSE(fs::exists(gone)) << gone;
    EXPECT_EQ(byRoot(IndexCatalog::list(linuxPlatform(), index))[top.at("disk/photos")].status,
              Status::offline);
    EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), index).bytes, 0U);
    EXPECT_EQ(IndexCatalog::collectGarbage(linuxPlatform(), top.at("none")).indexes, 0U);
  });
}

}  // namespace
}  // namespace quon::test
