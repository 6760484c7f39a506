// The reference of everything live: after any sequence of edits, the patched index and tree equal those of a
// fresh scan. Edits come from a seeded editor, with the events that an ideal service would report.
#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ScannedTree.h"
#include "support/FakeEvents.h"
#include "support/IndexComparison.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

/// How many bursts a run makes: from QUON_MODEL_BURSTS, for long runs by hand.
int burstsPerRun(int usual) {
  const char* wanted = std::getenv("QUON_MODEL_BURSTS");  // NOLINT(concurrency-mt-unsafe)
  return wanted == nullptr ? usual : std::atoi(wanted);
}

class Model : public ScannedTree {
 protected:
  std::string lastEdits(const TreeEditor& editor, std::size_t count) {
    std::string text;
    const auto& log = editor.log();
    for (std::size_t at = log.size() - std::min(count, log.size()); at < log.size(); ++at)
      text += log[at] + "\n";
    return text;
  }
};

/// The folders of a tree by path.
std::map<std::string, const DirNode*> foldersOf(const DirNode& root) {
  std::map<std::string, const DirNode*> folders{{"", &root}};
  std::vector<const DirNode*> all{&root};
  for (std::size_t at = 0; at < all.size(); ++at) {
    for (const RefPtr<DirNode>& child : all[at]->subdirs) {
      folders.emplace(child->path(""), child.get());
      all.push_back(child.get());
    }
  }
  return folders;
}

/// The slots of a tree that was scanned or loaded just now are ranks by size.
void expectRankedSlots(const DirNode& root) {
  for (const auto& [path, folder] : foldersOf(root)) {
    std::vector<RefPtr<DirNode>> ranked = folder->subdirs;
    std::ranges::stable_sort(ranked, std::greater<>(), [](const auto& child) { return child->totalLogical; });
    for (std::size_t rank = 0; rank < ranked.size(); ++rank) {
      ASSERT_EQ(ranked[rank]->slotIndex, rank % 12) << ranked[rank]->path("");
    }
  }
}

/// The slots of a tree across batches: a path keeps its slot, and what is new takes none that is in use as
/// long as some are not.
class SlotHistory {
 public:
  explicit SlotHistory(const DirNode& root) { expectKept(root); }

  void expectKept(const DirNode& root) {
    std::map<std::string, int> now;
    for (const auto& [path, folder] : foldersOf(root)) {
      now[path] = folder->slotIndex;
      if (const auto before = slots.find(path); before != slots.end()) {
        ASSERT_EQ(folder->slotIndex, before->second) << path;
      }
      const std::size_t known = childCounts[path];
      std::set<int> used;
      std::size_t fresh = 0;
      for (const RefPtr<DirNode>& child : folder->subdirs) {
        used.insert(child->slotIndex);
        if (!slots.contains(child->path(""))) ++fresh;
      }
      // With more, some share a slot, and still do when others have gone.
      if (known + fresh > 12) crowded.insert(path);
      if (!crowded.contains(path)) {
        ASSERT_EQ(used.size(), folder->subdirs.size()) << path;
      }
      childCounts[path] = folder->subdirs.size();
    }
    slots = std::move(now);
  }

 private:
  std::map<std::string, int> slots;
  std::map<std::string, std::size_t> childCounts;
  std::set<std::string> crowded;
};

TEST_F(Model, PatchedTreeAndIndexEqualAFreshScan) {
  const std::uint64_t seed = randomSeed();
  TreeEditor editor(root, seed);
  editor.populate(120);
  const std::string index = scan("patched");
  Loaded loaded = load(index);
  expectRankedSlots(*loaded.result.root);
  SlotHistory slots(*loaded.result.root);
  std::vector<TopFile> top = loaded.result.topFiles;
  std::size_t edits = 0;
  for (int burst = 0; burst < burstsPerRun(60); ++burst) {
    const std::size_t size = 1 + (seed + static_cast<std::size_t>(burst) * 7) % 12;
    for (std::size_t count = 0; count < size; ++count, ++edits) editor.edit();
    {
      ScanPatcher patcher(index, rootPath);
      Refresh::Batch batch = Refresh::prepare(platform, Refresh::coalesce(editor.takeEvents(), rootPath, {}),
                                              patcher, indexed(index));
      patcher.begin(patcher.revision());
      Refresh::commitStore(batch, patcher);
      top = Refresh::patchTop(std::move(top), batch, kMinKeep, 1000);
      patcher.updateTopFiles(top);
      patcher.commit(static_cast<std::uint64_t>(burst) + 1, 1.5);
      Refresh::rollupDirty(Refresh::commitTree(loaded.result.root, rootPath, kMinKeep, batch));
    }
    ASSERT_EQ(differences(*loaded.result.root, *load(index).result.root), "") << lastEdits(editor, size);
    slots.expectKept(*loaded.result.root);
    ASSERT_EQ(differences(index, scan("fresh")), "") << "burst " << burst << ":\n" << lastEdits(editor, size);
  }
  RecordProperty("edits", static_cast<int>(edits));
}

TEST_F(Model, NewFolderTakesTheLowestFreeSlot) {
  for (const char* folder : {"a", "b", "c", "d"}) tree.file(std::string(folder) + "/x", 100 - *folder % 4);
  Loaded loaded = load(scan("slots"));
  DirNode& top = *loaded.result.root;
  const auto slotsByName = [&top] {
    std::map<std::string, int> slots;
    for (const RefPtr<DirNode>& child : top.subdirs) slots[child->name] = child->slotIndex;
    return slots;
  };
  const auto commit = [&](const std::string& name, const char* below) {
    Refresh::Batch batch;
    RefPtr<DirNode> node;
    if (below != nullptr) {
      node = new DirNode(name);
      node->subdirs.emplace_back(new DirNode(below));
      node->subdirs.back()->parent = node.get();
    }
    Refresh::Batch::Op& op = batch.ops.emplace_back();
    op.path = root;
    op.children = {{name, node}};
    Refresh::rollupDirty(Refresh::commitTree(loaded.result.root, rootPath, kMinKeep, batch));
  };
  const std::map<std::string, int> ranked{{"d", 0}, {"a", 1}, {"b", 2}, {"c", 3}};
  ASSERT_EQ(slotsByName(), ranked);
  commit("a", nullptr);
  commit("c", "x");
  commit("e", "y");
  EXPECT_EQ(slotsByName(), (std::map<std::string, int>{{"b", 2}, {"c", 3}, {"d", 0}, {"e", 1}}));
  for (int more = 0; more < 9; ++more) commit("f" + std::to_string(more), "z");
  EXPECT_EQ(slotsByName()["f7"], 11);
  EXPECT_EQ(slotsByName()["f8"], 0) << "all are in use, each by one";
}

TEST_F(Model, CatchUpEqualsAFreshScan) {
  TreeEditor editor(root, randomSeed());
  editor.populate(80);
  const std::string index = scan("patched");
  FakeEvents events;
  for (int round = 0; round < burstsPerRun(12); ++round) {
    for (int count = 0; count < 25; ++count) editor.edit();
    events.history = editor.takeEvents();
    events.current += 1000;
    Loaded loaded = load(index);
    const auto [result, outcome] =
        Refresh::catchUp(platform, events, loaded, {.index = {.root = rootPath, .indexURL = index}});
    ASSERT_EQ(outcome.newEventId, events.current);
    ASSERT_EQ(differences(*result.root, *load(index).result.root), "");
    ASSERT_EQ(differences(index, scan("fresh")), "") << "round " << round << ":\n" << lastEdits(editor, 25);
  }
}

TEST_F(Model, CatchUpReportsWhyItCannotKnow) {
  tree.file("a/b", 100);
  const std::string index = scan("patched");
  FakeEvents events;
  const Refresh::CatchUpOptions options{.index = {.root = rootPath, .indexURL = index}, .maxChanges = 3};
  const auto reason = [&](Loaded loaded) -> std::string {
    try {
      (void)Refresh::catchUp(platform, events, loaded, options);
    } catch (const Refresh::Failure& failure) {
      return failure.what();
    }
    return "caught up";
  };
  const auto with = [&](auto change) {
    Loaded loaded = load(index);
    change(loaded);
    return reason(std::move(loaded));
  };
  const auto unchanged = [](Loaded&) {};

  EXPECT_EQ(with([](Loaded& loaded) { loaded.hasLinkRegistry = false; }),
            "journal replay unavailable: index predates the hardlink registry");
  EXPECT_EQ(with([](Loaded& loaded) { loaded.lastEventId = 0; }),
            "journal replay unavailable: index predates event tracking");
  EXPECT_EQ(with([](Loaded& loaded) { loaded.disk.volume += "x"; }),
            "root is on a different device than the index");
  EXPECT_EQ(with([](Loaded& loaded) { loaded.rootDev += 1; }), "caught up") << "the same disk, renumbered";
  events.history = {{root + "/a", 0x04, 5}};
  EXPECT_EQ(with(unchanged),
            "journal replay unavailable: some changes were not recorded (journal flags 0x4)");
  events.history = {{root, EventFlag::mustScanSubdirs, 5}, {root + "/a", 0, 6}};
  EXPECT_EQ(with(unchanged), "2 changed dirs — a rescan is cheaper");
  events.history = {{root + "/1", 0, 5},  {root + "/2", 0, 6}, {root + "/3", 0, 6},
                    {root + "/4/", 0, 6}, {root + "/4", 0, 7}, {root + "x", 0, 8}};
  EXPECT_EQ(with(unchanged), "4 changed dirs — a rescan is cheaper");
  events.history.clear();
  events.failStart = true;
  EXPECT_EQ(with(unchanged), "journal replay unavailable: stream start failed");
  events.failCreate = true;
  EXPECT_EQ(with(unchanged), "journal replay unavailable: stream creation failed");
  events.failCreate = events.failStart = false;
  EXPECT_EQ(with(unchanged), "caught up");
  EXPECT_EQ(load(index).lastEventId, events.current);
}

}  // namespace
}  // namespace quon::test
