// Listing one large folder: the system calls of a walk and nothing else.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include "ScratchFolder.h"
#include "linux_fs/LinuxDirectories.h"
#include "platform/Directories.h"

namespace quon::bench {
namespace {

constexpr std::int64_t kFiles = 10000;

void fill(const ScratchFolder& folder) {
  for (std::int64_t number = 0; number < kFiles; ++number) {
    const std::ofstream made(folder.at("file-" + std::to_string(number) + ".data"));
    if (!made) throw std::runtime_error("cannot make the files to list");
  }
}

std::int64_t listOnce(DirectoryReader& reader, const std::string& path) {
  const OpenedDirectory opened = reader.open(path);
  if (!opened.directory) throw std::system_error(opened.error, path);
  reader.start(opened.directory);
  std::int64_t seen = 0;
  while (true) {
    const DirectoryBatch batch = reader.next();
    seen += static_cast<std::int64_t>(batch.entries.size());
    if (batch.status == ReadStatus::failed) throw std::system_error(batch.error, path);
    if (batch.status == ReadStatus::end) return seen;
  }
}

void listFolder(benchmark::State& state) {
  const ScratchFolder folder;
  fill(folder);
  const std::unique_ptr<DirectoryReader> reader = LinuxDirectories().makeReader();
  for (auto _ : state) {
    if (listOnce(*reader, folder.path) != kFiles) return state.SkipWithError("not every file was listed");
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(listFolder)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quon::bench
