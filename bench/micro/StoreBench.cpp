// Writing and reading an index of 100,000 files in 2,000 folders that never were on a disk.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ScratchFolder.h"
#include "platform_linux/LinuxPlatform.h"
#include "scan/DirNode.h"
#include "scan/FileBatch.h"
#include "scan/KeptFiles.h"
#include "scan/WalkResult.h"
#include "scan/Walker.h"
#include "store/ScanStore.h"

namespace quon::bench {
namespace {

constexpr std::size_t kFolders = 2000;
constexpr std::size_t kFilesInFolder = 50;
constexpr std::int64_t kFiles = static_cast<std::int64_t>(kFolders * kFilesInFolder);
constexpr std::uint64_t kFileBytes = 5000;
constexpr std::uint64_t kFileBlocks = 8192;
constexpr std::int64_t kMtime = 1700000000;
constexpr const char* kRoot = "/made/up";

/// What a walk would have found: the root and its folders, parents before children.
struct MadeTree {
  WalkResult result;
  std::vector<const DirNode*> folders;
  FileBatch::Builder files;
};

MadeTree makeTree() {
  MadeTree made;
  made.result.root = RefPtr<DirNode>(new DirNode(kRoot));
  made.folders.push_back(made.result.root.get());
  for (std::size_t number = 0; number < kFolders; ++number) {
    RefPtr<DirNode> folder(new DirNode("folder-" + std::to_string(number)));
    folder->parent = made.result.root.get();
    folder->mtime = kMtime;
    folder->directFiles = kFilesInFolder;
    folder->directLogical = kFilesInFolder * kFileBytes;
    folder->directPhysical = kFilesInFolder * kFileBlocks;
    folder->directNewest = kMtime;
    made.folders.push_back(folder.get());
    made.result.root->subdirs.push_back(std::move(folder));
  }
  for (std::size_t number = 0; number < kFilesInFolder; ++number) {
    made.files.add({"file-" + std::to_string(number) + ".data", kFileBytes, kFileBlocks, kMtime});
  }
  made.result.root->rollup();
  return made;
}

void writeIndex(const Platform& platform, const MadeTree& made, const std::string& url) {
  ScanStore store(platform, url);
  store.record(*made.folders.front(), FileBatch());
  for (std::size_t at = 1; at < made.folders.size(); ++at)
    store.record(*made.folders[at], made.files.build());
  store.finish(RootPath(kRoot), 0, made.result, 1, 1);
}

void recordIndex(benchmark::State& state) {
  const ScratchFolder folder;
  const LinuxPlatform platform;
  const MadeTree made = makeTree();
  const std::string url = folder.at("recorded.sqlite");
  for (auto _ : state) writeIndex(platform.services(), made, url);
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(recordIndex)->Unit(benchmark::kMillisecond)->UseRealTime();

void loadIndex(benchmark::State& state) {
  const ScratchFolder folder;
  const LinuxPlatform platform;
  const std::string url = folder.at("loaded.sqlite");
  writeIndex(platform.services(), makeTree(), url);
  for (auto _ : state) {
    const Loaded loaded = ScanStore::load(url, RootPath(kRoot));
    if (loaded.result.root->totalFiles != static_cast<std::uint64_t>(kFiles)) {
      return state.SkipWithError("not every file was loaded");
    }
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(loadIndex)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace quon::bench
