// Folders that programs make again, and above all those that they do not.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/stat.h>

#include "PathTree.h"
#include "base/Path.h"
#include "lenses/KnownMarkers.h"
#include "lenses/MarkerFiles.h"
#include "lenses/Reclaim.h"
#include "store/FolderScan.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

using testing::IsEmpty;

constexpr const char* kTag = "Signature: 8a477f597d28d172789f06886806bc55\n# made by a test\n";

/// Labels with the paths below them.
using Listed = std::map<std::string, std::vector<std::string>>;

Listed listed(const std::vector<Reclaim::Group>& groups, const std::string& rootPath = "/r") {
  Listed all;
  for (const Reclaim::Group& group : groups) {
    auto& paths = all[std::string(group.rule.label)];
    for (const auto& node : group.nodes) paths.push_back(node->path(rootPath));
  }
  return all;
}

TEST(Reclaim, GroupsByLabelLargestFirst) {
  PathTree tree;
  tree.folder("a/zig-cache", 10);
  tree.folder("b/.zig-cache", 300);
  tree.folder("c/Caches", 50);
  tree.folder("c/caches", 500);
  tree.folder("d/node_modules/x/node_modules", 20);
  tree.folder("d/node_modules/Caches", 15);
  tree.folder("e/node_modules", 34);
  const auto groups = Reclaim::groups(tree.rolledUp(), Metric::logical);
  ASSERT_EQ(groups.size(), 3U);
  EXPECT_EQ(groups[0].rule.match, "zig-cache");
  EXPECT_EQ(groups[0].total, 310U);
  EXPECT_EQ(groups[1].rule, Reclaim::rules()[0]);
  EXPECT_EQ(groups[1].total, 69U) << "nothing twice";
  EXPECT_EQ(groups[2].total, 50U);
  EXPECT_EQ(Reclaim::groups(tree.sample.shared(), Metric::physical)[2].total, 100U);
  EXPECT_EQ(listed(groups), (Listed{{"node_modules", {"/r/d/node_modules", "/r/e/node_modules"}},
                                    {"caches (dirs named Caches)", {"/r/c/Caches"}},
                                    {"Zig cache", {"/r/b/.zig-cache", "/r/a/zig-cache"}}}));
}

TEST(Reclaim, TheScannedRootIsAParentByItsLastName) {
  SampleTree scanned("/home/u/.cargo");
  scanned.folder("registry");
  EXPECT_EQ(Reclaim::groups(scanned.shared(), Metric::logical).size(), 1U);
}

void walkRecursively(const DirNode& folder, Listed& all) {
  for (const auto& child : folder.subdirs) {
    const auto rule = std::ranges::find_if(Reclaim::rules(), [&](const Reclaim::Rule& tried) {
      return tried.match == child->name && tried.parent.value_or(folder.name) == folder.name;
    });
    if (rule == Reclaim::rules().end()) {
      walkRecursively(*child, all);
    } else {
      all[std::string(rule->label)].push_back(child->path("/r"));
    }
  }
}

TEST(Reclaim, ListsWhatARecursiveWalkFindsInTheOrderOfTheTree) {
  std::mt19937_64 random(randomSeed());
  std::vector<std::string> names{"a", "b", "c", "d", "e", ".cargo", "registry", ".tart", "tmp"};
  for (const Reclaim::Rule& rule : Reclaim::rules()) {
    if (random() % 4 == 0) names.emplace_back(rule.match);
  }
  for (int round = 0; round < 40; ++round) {
    PathTree tree = PathTree::random(random, 200, names);
    const RefPtr<DirNode> root = tree.sample.shared();  // not rolled up: every total is 0
    Listed expected;
    walkRecursively(*root, expected);
    EXPECT_EQ(listed(Reclaim::groups(root, Metric::logical)), expected);
  }
}

constexpr auto never = [] { return false; };

/// Marker files by full path, and which were read.
struct FakeMarkers final : MarkerFiles {
  std::map<std::string, std::string> files;
  mutable std::vector<std::string> read;

  [[nodiscard]] bool contains(const std::string& folder, std::string_view name) const override {
    read.push_back(joinPath(folder, name));
    return files.contains(read.back());
  }
  [[nodiscard]] std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                     std::size_t most) const override {
    if (!contains(folder, name)) return std::nullopt;
    return files.at(read.back()).substr(0, most);
  }
};

struct DesktopReclaim : testing::Test {
  PathTree tree;
  FakeMarkers markers;
  Reclaim::Surroundings where{.rootPath = "",
                              .home = "/home/u",
                              .cacheHome = "",
                              .configHome = "",
                              .dataHome = "",
                              .mountPoints = {"/", "/media/disk"},
                              .userID = 1000};

  /// Makes folders from their paths, a blank between two.
  void folders(const std::string& paths) {
    std::istringstream each(paths);
    for (std::string path; each >> path;) tree.folder(path, 1);
  }
  Listed listIn(const RefPtr<DirNode>& root) {
    for (const auto& [path, content] : markers.files) {
      if (lastComponent(path) != "CACHEDIR.TAG") continue;
      const auto folder = folderAt(root, path.substr(1, path.rfind('/') - 1));
      if (folder) folder->cacheTagged = true;
    }
    const std::size_t before = markers.read.size();
    Listed found = listed(groupsIn(root, Metric::logical, markers), "");
    std::vector<std::string> read(markers.read.begin() + static_cast<std::ptrdiff_t>(before),
                                  markers.read.end());
    // The same when the disk is read between walks of the tree, not within.
    const FakeMarkers disk = markers;
    KnownMarkers known;
    const auto settled = [&] {
      Listed again;
      do {
        EXPECT_TRUE(known.findOut(disk, never));
        again = listed(groupsIn(root, Metric::logical, known), "");
      } while (known.hasNewQuestions());
      return again;
    };
    EXPECT_EQ(settled(), found);
    // After changes only their folders are asked about.
    disk.read.clear();
    known.forget({"/home/u/nothing"}, {"/home/u/nothing"});
    EXPECT_EQ(settled(), found);
    EXPECT_THAT(disk.read, IsEmpty());
    if (read.size() > 2) read = {read.front(), read.back()};
    for (const std::string& changed : read) {
      disk.read.clear();
      known.forget({std::string(parentPath(changed))}, {});
      EXPECT_EQ(settled(), found);
      EXPECT_THAT(disk.read, testing::Each(testing::ResultOf(parentPath, parentPath(changed))));
      EXPECT_THAT(disk.read, testing::Contains(changed));
    }
    return found;
  }
  Listed list() { return listIn(tree.rolledUp()); }
  [[nodiscard]] std::vector<Reclaim::Group> groupsIn(const RefPtr<DirNode>& scope, Metric metric,
                                                     const MarkerFiles& evidence) const {
    return *Reclaim::groups(scope, metric, where, evidence, never);
  }
};

TEST_F(DesktopReclaim, ListsCachesBelowHomeAndTrashOnVolumes) {
  markers.files = {{"/home/u/.cache/CACHEDIR.TAG", "not needed there, and not sound"}};
  folders(
      "home/u/.cache/app/node_modules home/u/.ccache/0 home/u/.ccache/g home/u/.cargo/git home/u/.cargo/bin "
      "home/u/go/src home/u/snap/x/42/.cache home/u/snap/x/.cache home/u/snap/x/1/y/.cache "
      "home/u/.local/share/Trash home/u/.var/app/org.x/cache home/u/.var/app/org.x/data/cache "
      "home/u/.var/app/cache media/disk/.Trash-1000 media/disk/.Trash-1001 media/disk/sub/.Trash-1000 "
      "home/w/.cache home/u/x/.cache home/u/cache");
  EXPECT_EQ(list(), (Listed{{"app caches (~/.cache)", {"/home/u/.cache"}},
                            {"ccache (~/.ccache)", {"/home/u/.ccache/0"}},
                            {"cargo git checkouts", {"/home/u/.cargo/git"}},
                            {"Trash", {"/home/u/.local/share/Trash", "/media/disk/.Trash-1000"}},
                            {"Snap app caches", {"/home/u/snap/x/42/.cache"}},
                            {"Flatpak app caches", {"/home/u/.var/app/org.x/cache"}}}));
  EXPECT_THAT(markers.read, IsEmpty());
}

TEST_F(DesktopReclaim, FindsPlacesWhateverTheScannedRoot) {
  where.rootPath = "/home/u/.var/app";
  folders("org.x/cache/cache");
  EXPECT_EQ(list(), (Listed{{"Flatpak app caches", {"/org.x/cache"}}}));
  const auto below = groupsIn(RefPtr<DirNode>(&tree.folder("org.x/cache")), Metric::logical, markers);
  EXPECT_THAT(below, IsEmpty());
}

TEST_F(DesktopReclaim, NeverListsWhatHoldsTheUsersOwnFiles) {
  folders("home/u/.cache home/u/.local/share/mail home/u/.config elsewhere");
  for (const char* const set : {"/home", "/home/u", "/home/u/", "/", "//", "/home//u", "/home/u/.local",
                                "/home/u/.config", "/home/u/../u", "/home/u/./"}) {
    where.cacheHome = set;
    EXPECT_EQ(list(), Listed()) << set;
  }
  where.cacheHome = "relative";
  EXPECT_EQ(list(), (Listed{{"app caches (~/.cache)", {"/home/u/.cache"}}})) << "as if it were not set";
  where.cacheHome = "/elsewhere/";
  EXPECT_EQ(list(), (Listed{{"app caches (~/.cache)", {"/elsewhere"}}}));
  markers.files = {{"/home/CACHEDIR.TAG", kTag}, {"/home/u/.config/CACHEDIR.TAG", kTag}};
  where.cacheHome = "";
  EXPECT_EQ(list(), (Listed{{"app caches (~/.cache)", {"/home/u/.cache"}}}));
  where.mountPoints.emplace_back("/home/u/.cache/remote");
  EXPECT_EQ(list(), Listed()) << "another volume lies in it";
}

TEST_F(DesktopReclaim, NeverListsAFolderAroundTheHomeOrAMount) {
  where.home = "/srv/Pods/u";
  where.mountPoints.emplace_back("/vol/node_modules/disk");
  folders(
      "srv/Pods/u/.npm srv/Pods/u/letters srv/Pods/v vol/node_modules/disk "
      "vol/node_modules/a/node_modules");
  EXPECT_EQ(list(), (Listed{{"node_modules", {"/vol/node_modules/a/node_modules"}},
                            {"npm cache (~/.npm)", {"/srv/Pods/u/.npm"}}}));
}

TEST_F(DesktopReclaim, ListsTaggedFoldersOnlyWithTheRightSignature) {
  const std::string tag = kTag;
  for (const char* const folder : {"sound", "sound/inner", "p/node_modules/x", "gone"})
    markers.files[joinPath("/" + std::string(folder), "CACHEDIR.TAG")] = tag;
  markers.files.merge(std::map<std::string, std::string>{
      {"/bare/CACHEDIR.TAG", tag.substr(0, 43)},
      {"/short/CACHEDIR.TAG", tag.substr(0, 42)},
      {"/wrong/CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc56\n"},
      {"/late/CACHEDIR.TAG", "\n" + tag},
      {"/empty/CACHEDIR.TAG", ""}});
  folders("sound/inner bare short wrong late empty p/node_modules/x cache p/sound");
  EXPECT_EQ(list(), (Listed{{"caches (marked CACHEDIR.TAG)", {"/sound", "/bare"}},
                            {"node_modules", {"/p/node_modules"}}}));
  EXPECT_EQ(markers.read.size(), 6U) << "nothing inside what is listed already, nothing that is gone";
}

TEST_F(DesktopReclaim, ListsRustTargetsOnlyBesideTheirManifest) {
  for (const char* const file :
       {"/sound/Cargo.toml", "/sound/target/.rustc_info.json", "/tagged/Cargo.toml",
        "/tagged/target/CACHEDIR.TAG", "/alone/target/.rustc_info.json", "/unbuilt/Cargo.toml",
        "/member/Cargo.toml", "/member/target/.rustc_info.json", "/member/target/Cargo.toml",
        "/sound/target/debug/Cargo.toml"})
    markers.files[file] = kTag;
  folders(
      "sound/target/debug/target tagged/target alone/target unbuilt/target member/target "
      "sound/Target target");
  EXPECT_EQ(list(), (Listed{{"Rust target", {"/sound/target", "/tagged/target"}}}));
}

TEST_F(DesktopReclaim, ListsBrowserCachesOnlyWithTheirIndex) {
  const std::string app = "/home/u/.config/app/";
  for (const char* const file :
       {"Cache/Cache_Data/index", "GPUCache/index", "GPUCache/data_0", "Default/Code Cache/js/index",
        "old/Cache/index", "old/Cache/data_1", "bare/GPUCache/index", "x/cache/index", "x/cache/data_0"}) {
    markers.files[app + file] = "";
  }
  for (const char* const elsewhere :
       {"/home/u/Cache/Cache_Data/index", "/home/u/.config/Cache/Cache_Data/index"})
    markers.files[elsewhere] = "";
  folders(
      "home/u/.config/app/Cache home/u/.config/app/GPUCache home/u/.config/app/old/Cache "
      "home/u/.config/app/bare/GPUCache home/u/.config/app/x/cache home/u/Cache home/u/.config/Cache");
  tree.folder("home/u/.config/app/Default/Code Cache", 1);
  const std::string label = "Electron & browser caches";
  EXPECT_EQ(list(), (Listed{{label, {app + "Cache", app + "GPUCache", app + "Default/Code Cache"}}}));
  where.configHome = "/home/w";
  EXPECT_EQ(list(), Listed());
}

TEST_F(DesktopReclaim, GoesToAnyDepth) {
  EXPECT_EQ(listIn(PathTree::chain("target", 100'000).rolledUp()), Listed());
  EXPECT_LT(markers.read.size(), 1000U) << "a path too long to open proves nothing";
  PathTree chain = PathTree::chain("d", 100'000);
  DirNode* deepest = &chain.sample.root();
  while (!deepest->subdirs.empty()) deepest = deepest->subdirs[0].get();
  chain.sample.folder(".venv", deepest);
  EXPECT_EQ(listIn(chain.rolledUp()).at("Python venvs").size(), 1U);
  EXPECT_EQ(Reclaim::groups(chain.sample.shared(), Metric::logical).size(), 1U);
}

TEST(DiskMarkers, AreReadFromTheDisk) {
  const TempFolder folder;
  const auto write = [&folder](const std::string& name, const std::string& content) {
    std::ofstream(folder.file(name)) << content;
  };
  write("home/good/CACHEDIR.TAG", kTag);
  write("home/wrong/CACHEDIR.TAG", "Signature: none of the kind, but as long as a sound one\n");
  write("home/rust/Cargo.toml", "[package]\n");
  write("home/rust/target/.rustc_info.json", "{}");
  write("home/other/target/.rustc_info.json", "{}");
  std::filesystem::create_directories(folder.at("home/linked"));
  std::filesystem::create_symlink("../good/CACHEDIR.TAG", folder.at("home/linked/CACHEDIR.TAG"));
  std::filesystem::create_directories(folder.at("home/pipe"));
  ASSERT_EQ(::mkfifo(folder.at("home/pipe/CACHEDIR.TAG").c_str(), 0600), 0);
  std::filesystem::create_directories(folder.at("home/folder/CACHEDIR.TAG"));

  const std::string root = folder.at("home");
  FolderScan scan(linuxPlatform(), {.root = RootPath(root), .saveIndex = false});
  const FolderScan::Outcome outcome = scan.run();
  const DiskMarkers markers;
  const Reclaim::Surroundings where{
      .rootPath = root, .home = root, .cacheHome = "", .configHome = "", .dataHome = "", .mountPoints = {}};
  EXPECT_EQ(listed(*Reclaim::groups(outcome.result.root, Metric::logical, where, markers, never), "~"),
            (Listed{{"caches (marked CACHEDIR.TAG)", {"~/good"}}, {"Rust target", {"~/rust/target"}}}));
  EXPECT_EQ(markers.beginning(root + "/good", "CACHEDIR.TAG", 9), "Signature");
  EXPECT_EQ(markers.beginning(root + "/gone", "CACHEDIR.TAG", 9), std::nullopt);
}

}  // namespace
}  // namespace quon::test
