// What a layout of the map and a hit test cost. With QUON_BENCH_TREE, the path of a folder, on that; else on
// a made-up home whose folders are all of a size, which no layout can leave out.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "base/Text.h"
#include "map/Labels.h"
#include "map/MapMark.h"
#include "platform_linux/LinuxPlatform.h"
#include "scan/DirNode.h"
#include "scan/KeptFiles.h"
#include "store/FolderScan.h"

namespace quon::bench {
namespace {

constexpr MapSize kPane{752, 720};
constexpr std::uint64_t kSeed = 20240229;

void addFolders(DirNode& parent, int levels) {
  constexpr int kChildren = 18;
  constexpr int kFiles = 9;
  for (int file = 0; file < kFiles; ++file) {
    parent.keptFiles.push_back({"file-" + std::to_string(file) + ".bin", kMinKeep, kMinKeep, 0});
    parent.directLogical += kMinKeep;
  }
  for (int child = 0; levels > 0 && child < kChildren; ++child) {
    RefPtr<DirNode> node(new DirNode("folder-" + std::to_string(child)));
    node->parent = &parent;
    addFolders(*node, levels - 1);
    parent.subdirs.push_back(std::move(node));
  }
}

const MapScope& scope() {
  static const MapScope kScope = [] {
    const char* folder = std::getenv("QUON_BENCH_TREE");  // NOLINT(concurrency-mt-unsafe): one thread
    if (folder != nullptr) {
      static const LinuxPlatform kPlatform;
      FolderScan scan(kPlatform.services(), {.root = RootPath(folder), .saveIndex = false});
      return MapScope{scan.run().result.root, folder, Metric::logical};
    }
    constexpr int kLevels = 4;
    MapScope made{RefPtr<DirNode>(new DirNode("home")), "/home", Metric::logical};
    addFolders(*made.node, kLevels);
    made.node->rollup();
    return made;
  }();
  return kScope;
}

using Layout = std::vector<MapMark> (*)(const MapScope&, MapSize, const Theme&);

void layOut(benchmark::State& state, Layout layout) {
  std::size_t marks = 0;
  for (auto _ : state) marks = layout(scope(), kPane, Theme::light()).size();
  state.counters["marks"] = static_cast<double>(marks);
}
BENCHMARK_CAPTURE(layOut, sunburst, &sunburstMarks)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(layOut, treemap, &treemapMarks)->Unit(benchmark::kMillisecond);

void hitTest(benchmark::State& state, Layout layout) {
  const std::vector<MapMark> marks = layout(scope(), kPane, Theme::light());
  std::mt19937_64 random(kSeed);
  constexpr std::size_t kPoints = 4096;
  std::vector<MapPoint> points(kPoints);
  for (MapPoint& point : points) {
    point = {static_cast<double>(random() % 752), static_cast<double>(random() % 720)};
  }
  std::size_t at = 0;
  for (auto _ : state) benchmark::DoNotOptimize(hit(marks, points[at++ % kPoints], kPane));
}
BENCHMARK_CAPTURE(hitTest, sunburst, &sunburstMarks)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(hitTest, treemap, &treemapMarks)->Unit(benchmark::kMicrosecond);

struct FixedWidth final : TextMeasure {
  double width(const std::string& utf8, const TextStyle& style) override {
    return static_cast<double>(utf8.size()) * style.size / 2;
  }
};

/// Texts measured by a font of fixed widths, each once for all iterations.
void placeLabels(benchmark::State& state, Layout layout) {
  const std::vector<MapMark> marks = layout(scope(), kPane, Theme::light());
  FixedWidth font;
  TextWidths widths(font);
  std::size_t labels = 0;
  for (auto _ : state) {
    labels = marks.empty()          ? 0
             : marks.front().isRect ? treemapLabels(marks, {}, widths).size()
                                    : sunburstLabels(marks, kPane, {}, widths).size();
  }
  state.counters["labels"] = static_cast<double>(labels);
}
BENCHMARK_CAPTURE(placeLabels, sunburst, &sunburstMarks)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(placeLabels, treemap, &treemapMarks)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quon::bench
