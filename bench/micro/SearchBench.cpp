// Searches of a tree of 100,000 folders and 20,000 kept files, in milliseconds a search.

#include <algorithm>
#include <array>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "scan/DirNode.h"
#include "search/TreeSearch.h"

namespace quon::bench {
namespace {

constexpr std::size_t kFolders = 100000;
constexpr std::size_t kFiles = 20000;
constexpr std::uint64_t kSeed = 20240229;
constexpr std::int64_t kNow = 1709164800;
constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::size_t kRowsShown = 10000;

enum class Script : std::uint8_t { latin, cyrillic };

std::string nameOf(std::mt19937_64& random, Script script) {
  constexpr std::array<std::string_view, 12> kLatin{"node_modules", "src",       "Library", "Caches",
                                                    "include",      "Documents", "build",   "photos-2023",
                                                    "share",        "python3.9", "assets",  "Projects"};
  constexpr std::array<std::string_view, 6> kCyrillic{"Документы", "Загрузки", "Фотографии",
                                                      "Проекты",   "Музыка",   "Рабочий стол"};
  const std::string_view stem =
      script == Script::latin ? kLatin[random() % kLatin.size()] : kCyrillic[random() % kCyrillic.size()];
  return std::string(stem) + "-" + std::to_string(random() % 1000);
}

/// Each folder below any one made before it: twelve levels on average.
RefPtr<DirNode> makeTree(Script script, std::size_t folders = kFolders) {
  std::mt19937_64 random(kSeed);
  RefPtr<DirNode> root(new DirNode("root"));
  std::vector<DirNode*> all{root.get()};
  while (all.size() < folders) {
    DirNode* const parent = all[random() % all.size()];
    RefPtr<DirNode> child(new DirNode(nameOf(random, script)));
    child->parent = parent;
    child->mtime = kNow - static_cast<std::int64_t>(random() % 100000000);
    all.push_back(child.get());
    parent->subdirs.push_back(std::move(child));
  }
  constexpr std::array<std::string_view, 4> kEndings{".mp4", ".iso", ".sqlite", ".tar.gz"};
  for (std::size_t at = 0; at < kFiles; ++at) {
    DirNode& folder = *all[random() % all.size()];
    const std::uint64_t size = kMiB << random() % 12;
    const std::string name = nameOf(random, script) + std::string(kEndings[random() % kEndings.size()]);
    folder.keptFiles.push_back({name, size, size, kNow - static_cast<std::int64_t>(random() % 100000000)});
    folder.directLogical += size;
    folder.directPhysical += size;
    ++folder.directFiles;
  }
  root->rollup();
  return root;
}

std::string_view kindOfFile(const DirNode& /*folder*/, std::string_view name) {
  return name.ends_with(".mp4") ? "media" : "other";
}

void search(benchmark::State& state, const char* text, Script script) {
  const RefPtr<DirNode> root = makeTree(script);
  const TokenQuery query = TokenQuery::parse(text, kNow);
  std::size_t found = 0;
  for (auto _ : state) {
    auto hits = quon::search(
        query, root, "/home/somebody", Metric::logical,
        [](const DirNode& folder, std::string_view name) { return kindOfFile(folder, name); },
        [] { return false; }, kRowsShown);
    found = hits->found;
    benchmark::DoNotOptimize(hits->rows.data());
  }
  state.counters["rows"] = static_cast<double>(found);
}
BENCHMARK_CAPTURE(search, filters, "kind:video size:>1gb in:Library", Script::latin)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search, rareTerm, "caches-17", Script::latin)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search, commonTerm, "library", Script::latin)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search, threeTerms, "lib cac doc", Script::latin)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search, age, "age:>2y size:>1gb", Script::latin)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search, otherScript, "музыка-17", Script::cyrillic)->Unit(benchmark::kMillisecond);

/// From the moment a search of 1,000,000 folders is called off, at moments spread over all it takes, until it
/// has ended.
void cancelled(benchmark::State& state) {
  const RefPtr<DirNode> root = makeTree(Script::latin, 1000000);
  const TokenQuery query = TokenQuery::parse("library", kNow);
  std::mt19937_64 random(kSeed);
  for (auto each : state) {
    std::atomic<bool> off{false};
    std::chrono::steady_clock::time_point ended;
    std::thread searching([&] {
      (void)quon::search(
          query, root, "", Metric::logical, &kindOfFile, [&] { return off.load(); }, kRowsShown);
      ended = std::chrono::steady_clock::now();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 400));
    const auto called = std::chrono::steady_clock::now();
    off = true;
    searching.join();
    state.SetIterationTime(std::max(0.0, std::chrono::duration<double>(ended - called).count()));
  }
}
BENCHMARK(cancelled)->UseManualTime()->Iterations(40)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quon::bench
