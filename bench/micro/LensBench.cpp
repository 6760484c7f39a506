// What a lens costs on a large home folder: 100,000 folders that keep 20,000 files.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "lenses/Age.h"
#include "lenses/Kinds.h"
#include "lenses/MarkerFiles.h"
#include "lenses/Reclaim.h"
#include "rows/FolderRows.h"
#include "scan/DirNode.h"
#include "scan/KeptFiles.h"
#include "scan/Walker.h"

namespace quon::bench {
namespace {

constexpr auto never = [] { return false; };

constexpr std::size_t kFolders = 100'000;
constexpr std::size_t kFiles = 20'000;
constexpr std::uint64_t kSeed = 20240229;
constexpr std::int64_t kOldest = 1'500'000'000;
constexpr std::int64_t kYears = 200'000'000;
constexpr const char* kHome = "/home/somebody";

std::string nameOf(std::mt19937_64& random, std::size_t number) {
  constexpr std::string_view kKnown[]{"node_modules", "__pycache__", "target", ".build", "cache"};
  return random() % 50 == 0 ? std::string(kKnown[random() % std::size(kKnown)])
                            : "folder-" + std::to_string(number);
}

/// Folders below folders made before, ten levels deep on average. A folder in fifty bears a name that some
/// rule asks for; the times spread over six years.
RefPtr<DirNode> makeTree() {
  std::mt19937_64 random(kSeed);
  RefPtr<DirNode> root(new DirNode(kHome));
  std::vector<DirNode*> all{root.get()};
  while (all.size() < kFolders) {
    DirNode* const parent = all[random() % all.size()];
    RefPtr<DirNode> child(new DirNode(nameOf(random, all.size())));
    child->parent = parent;
    child->mtime = kOldest + static_cast<std::int64_t>(random() % kYears);
    child->directLogical = kMinKeep / 2;
    all.push_back(child.get());
    parent->subdirs.push_back(std::move(child));
  }
  constexpr std::string_view kEndings[]{".mkv",    ".JPG", ".tar.gz", ".so.6",
                                        ".sqlite", "",     ".pack",   ".unheard-of"};
  for (std::size_t number = 0; number < kFiles; ++number) {
    DirNode& folder = *all[random() % all.size()];
    const std::uint64_t bytes = kMinKeep + random() % (1ULL << 32U);
    folder.keptFiles.push_back(
        {"recording-" + std::to_string(number) + std::string(kEndings[random() % std::size(kEndings)]), bytes,
         bytes, kOldest + static_cast<std::int64_t>(random() % kYears)});
    folder.directLogical += bytes;
    folder.directPhysical += bytes;
  }
  root->rollup();
  return root;
}

void itemsAreFolders(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kFolders));
}

void kindTotals(benchmark::State& state) {
  const RefPtr<DirNode> root = makeTree();
  for (auto _ : state) benchmark::DoNotOptimize(Kinds::aggregate(root, "/r", Metric::physical, {}, never));
  itemsAreFolders(state);
}
BENCHMARK(kindTotals)->Unit(benchmark::kMillisecond);

void reclaimByName(benchmark::State& state) {
  const RefPtr<DirNode> root = makeTree();
  for (auto _ : state) benchmark::DoNotOptimize(Reclaim::groups(root, Metric::logical));
  itemsAreFolders(state);
}
BENCHMARK(reclaimByName)->Unit(benchmark::kMillisecond);

/// Reads of marker files are counted and cost nothing.
struct CountedMarkers final : MarkerFiles {
  mutable std::int64_t reads = 0;

  [[nodiscard]] bool contains(const std::string& /*folder*/, std::string_view /*name*/) const override {
    return ++reads % 4 == 0;
  }
  [[nodiscard]] std::optional<std::string> beginning(const std::string& /*folder*/, std::string_view /*name*/,
                                                     std::size_t most) const override {
    ++reads;
    return std::string(most, 'x');
  }
};

void reclaimOnDesktop(benchmark::State& state) {
  const RefPtr<DirNode> root = makeTree();
  CountedMarkers markers;
  std::vector<DirNode*> folders{root.get()};
  for (std::size_t at = 0; at < folders.size(); ++at) {
    folders[at]->cacheTagged = at % 100 == 1;
    for (const RefPtr<DirNode>& child : folders[at]->subdirs) folders.push_back(child.get());
  }
  const Reclaim::Surroundings where{.rootPath = kHome,
                                    .home = kHome,
                                    .cacheHome = "",
                                    .configHome = "",
                                    .dataHome = "",
                                    .mountPoints = {"/"},
                                    .userID = 1000};
  for (auto _ : state) benchmark::DoNotOptimize(Reclaim::groups(root, Metric::logical, where, markers, never));
  itemsAreFolders(state);
  state.counters["reads"] =
      benchmark::Counter(static_cast<double>(markers.reads), benchmark::Counter::kAvgIterations);
}
BENCHMARK(reclaimOnDesktop)->Unit(benchmark::kMillisecond);

void untouchedRows(benchmark::State& state) {
  const RefPtr<DirNode> root = makeTree();
  const std::int64_t cutoff = kOldest + kYears / 2;
  std::size_t rows = 0;
  for (auto _ : state) {
    const auto listed = ageScan(root, kHome, cutoff, Metric::physical, [] { return false; });
    rows = listed->size();
  }
  itemsAreFolders(state);
  state.counters["rows"] = static_cast<double>(rows);
}
BENCHMARK(untouchedRows)->Unit(benchmark::kMillisecond);

/// The rows of one folder with as many children as the whole tree has folders.
void scopeRows(benchmark::State& state) {
  constexpr std::size_t kRowsShown = 500;
  std::mt19937_64 random(kSeed);
  const RefPtr<DirNode> root(new DirNode(kHome));
  for (std::size_t number = 0; number < kFolders; ++number) {
    RefPtr<DirNode> child(new DirNode(nameOf(random, number)));
    child->parent = root.get();
    child->directLogical = child->directPhysical = random() % (1ULL << 32U);
    root->subdirs.push_back(std::move(child));
  }
  root->rollup();
  for (auto _ : state) {
    benchmark::DoNotOptimize(scopeEntries(root, kHome, Metric::physical, kRowsShown).data());
  }
}
BENCHMARK(scopeRows)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quon::bench
