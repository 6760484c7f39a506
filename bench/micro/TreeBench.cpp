// What is done once a folder or once a large file, in memory alone.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "scan/DirNode.h"
#include "scan/KeptFiles.h"
#include "scan/TopHeap.h"
#include "scan/Walker.h"

namespace quon::bench {
namespace {

constexpr std::size_t kFolders = 100000;
constexpr std::size_t kOffers = 100000;
constexpr std::uint64_t kSeed = 20240229;

/// Folders with eight children each, as deep as so many go.
RefPtr<DirNode> makeTree() {
  constexpr std::size_t kChildren = 8;
  RefPtr<DirNode> root(new DirNode("root"));
  std::vector<DirNode*> all{root.get()};
  while (all.size() < kFolders) {
    DirNode* const parent = all[(all.size() - 1) / kChildren];
    RefPtr<DirNode> child(new DirNode("folder-" + std::to_string(all.size())));
    child->parent = parent;
    child->directFiles = 10;
    child->directLogical = 50000;
    child->directPhysical = 81920;
    all.push_back(child.get());
    parent->subdirs.push_back(std::move(child));
  }
  return root;
}

void rollUp(benchmark::State& state) {
  const RefPtr<DirNode> root = makeTree();
  for (auto _ : state) {
    root->rollup();
    benchmark::DoNotOptimize(root->totalLogical);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kFolders));
}
BENCHMARK(rollUp)->Unit(benchmark::kMillisecond);

/// As the walk does it: the path is made only for what the heap would keep.
void offerTopFiles(benchmark::State& state) {
  std::mt19937_64 random(kSeed);
  std::vector<std::uint64_t> sizes(kOffers);
  for (std::uint64_t& size : sizes) size = kMinKeep + random() % (1ULL << 32U);
  const std::string path = "/home/somebody/folder/of/usual/depth/recording-2024.mkv";
  for (auto _ : state) {
    TopHeap heap(kTopFiles);
    for (const std::uint64_t size : sizes) {
      if (heap.wouldKeep(size)) heap.offer({path, size, size, 0});
    }
    benchmark::DoNotOptimize(heap.items.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kOffers));
}
BENCHMARK(offerTopFiles)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quon::bench
