// Labels over random trees, measured by a font of our own: all of each lies in its mark, says whose it is,
// and obeys the rules about what may be cut.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "RandomScope.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "map/Labels.h"
#include "map/Tiles.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

/// Every character is as wide as half its height; counts what it is asked.
struct FixedWidth final : TextMeasure {
  std::map<std::string, int> asked;

  double width(const std::string& utf8, const TextStyle& style) override {
    ++asked[std::to_string(style.size) + std::to_string(style.weight) + utf8];
    return static_cast<double>(characterOffsets(utf8).size()) * style.size / 2;
  }
};

/// A scope whose folders and files have names of all sorts.
void rename(const DirNode& folder, std::mt19937_64& random) {
  constexpr const char* kParts[]{"a",    "Camera", "-",    "_",    " ",  "site",
                                 "2024", "Ελλάδα", "שלום", "\xff", "\n", "long-word-without-end",
                                 "é",    "model"};
  constexpr const char* kEndings[]{"", ".mp4", ".mbtiles", ".tar.gz", ".so.6", ".", ".txt"};
  const auto name = [&](std::size_t number) {
    std::string made;
    for (std::uint64_t parts = 1 + random() % 6; parts > 0; --parts)
      made += kParts[random() % std::size(kParts)];
    return made + std::to_string(number);
  };
  for (std::size_t at = 0; at < folder.subdirs.size(); ++at) {
    folder.subdirs[at]->name = name(at);
    rename(*folder.subdirs[at], random);
  }
  for (FileEntry& file : const_cast<DirNode&>(folder).keptFiles) {
    file.name = name(9) + kEndings[random() % std::size(kEndings)];
  }
}

/// The letters of the label's lines, without the size; spaces may have been lost at the ends of lines.
std::string nameOn(const PlacedLabel& label, const std::string& bytes) {
  std::string name;
  for (const LabelLine& line : label.lines) {
    if (line.text != bytes || &line == &label.lines.front()) name += line.text;
  }
  std::erase(name, ' ');
  return name;
}

/// Whole, or its beginning and end with "…" between; how many characters stay.
void expectNameOrCut(const PlacedLabel& label, const MapMark& mark, Metric metric, std::size_t fewest) {
  std::string name = *mark.label;
  std::erase(name, ' ');
  const std::string shown = nameOn(label, humanBytes(mark.entry.size(metric)));
  if (shown == name) return;
  const std::size_t cut = shown.find("…");
  ASSERT_NE(cut, std::string::npos) << shown << " of " << name;
  const std::string front = shown.substr(0, cut);
  const std::string back = shown.substr(cut + std::string("…").size());
  ASSERT_TRUE(name.starts_with(front) && name.ends_with(back)) << shown << " of " << name;
  ASSERT_EQ(label.lines.front().text.find("……"), std::string::npos);
  if (mark.isFolder()) {
    ASSERT_EQ(back, "") << "a folder is cut at its end";
  }
  const std::size_t kept = characterOffsets(label.lines.front().text).size() - 1;
  ASSERT_GE(kept, fewest) << shown;
}

TEST(Labels, OfASunburstLieInTheirMarks) {
  std::mt19937_64 random(randomSeed());
  std::size_t placed = 0;
  for (int round = 0; round < 150; ++round) {
    const RandomScope drawn(random);
    rename(*drawn.scope.node, random);
    const MapSize size{300.0 + static_cast<double>(random() % 1500),
                       300.0 + static_cast<double>(random() % 1500)};
    const Rings rings = Rings::in(size);
    const std::vector<MapMark> marks = sunburstMarks(drawn.scope, size, Theme::light());
    FixedWidth font;
    TextWidths widths(font);
    for (const PlacedLabel& label : sunburstLabels(marks, size, {.metric = drawn.scope.metric}, widths)) {
      ++placed;
      const MapMark& mark = marks[label.mark];
      EXPECT_GT(std::cos(label.angle), -1e-9) << "upside down";
      for (const LabelLine& line : label.lines) {
        const double w = FixedWidth().width(line.text, line.style);
        // Along the whole frame of the line.
        for (int step = 0; step <= 40; ++step) {
          const double x = line.x + w * step / 40;
          for (const double y : {line.y - line.style.size * 0.45, line.y + line.style.size * 0.45}) {
            const double px =
                label.at.x + x * std::cos(label.angle) - y * std::sin(label.angle) - rings.centre.x;
            const double py =
                label.at.y + x * std::sin(label.angle) + y * std::cos(label.angle) - rings.centre.y;
            const double radius = std::hypot(px, py);
            ASSERT_TRUE(radius >= mark.rIn + 4.9 && radius <= mark.rOut - 4.9) << line.text;
            double angle = std::atan2(py, px);
            if (angle < mark.a0) angle += 2 * std::numbers::pi;
            ASSERT_LE(angle, mark.a1) << line.text;
          }
        }
      }
      const double share = std::ceil(0.65 * static_cast<double>(characterOffsets(*mark.label).size()));
      expectNameOrCut(label, mark, drawn.scope.metric,
                      std::clamp(static_cast<std::size_t>(share), std::size_t{mark.depth == 1 ? 6U : 8U},
                                 std::size_t{10}));
      if (HasFatalFailure()) return;
    }
    for (const auto& [text, times] : font.asked) ASSERT_EQ(times, 1) << text;
  }
  EXPECT_GT(placed, 100U);
}

TEST(Labels, OfATreemapLieInTheirTiles) {
  std::mt19937_64 random(randomSeed());
  std::size_t placed = 0;
  for (int round = 0; round < 150; ++round) {
    const RandomScope drawn(random);
    rename(*drawn.scope.node, random);
    const MapSize size{100.0 + static_cast<double>(random() % 1500),
                       100.0 + static_cast<double>(random() % 1500)};
    const std::vector<MapMark> marks = treemapMarks(drawn.scope, size, Theme::light());
    FixedWidth font;
    TextWidths widths(font);
    for (const PlacedLabel& label : treemapLabels(marks, {.metric = drawn.scope.metric}, widths)) {
      ++placed;
      const MapMark& mark = marks[label.mark];
      const MapRect tile = tileOf(mark.rect, mark.depth);
      const double bottom = mark.hasHeader ? 20 : tile.h;
      double end = 0;
      for (const LabelLine& line : label.lines) {
        const double w = FixedWidth().width(line.text, line.style);
        ASSERT_GE(line.x, 6 - 1e-9);
        ASSERT_LE(line.x + w, tile.w - 6 + 1e-9) << line.text;
        ASSERT_TRUE(line.y - line.style.size / 2 >= 0 && line.y + line.style.size / 2 <= bottom) << line.text;
        if (mark.hasHeader) {
          ASSERT_GT(line.x, end);
        }
        end = mark.hasHeader ? line.x + w : 0;
      }
      const std::size_t half = (characterOffsets(*mark.label).size() + 1) / 2;
      expectNameOrCut(label, mark, drawn.scope.metric, std::clamp<std::size_t>(half, 5, 8));
      if (HasFatalFailure()) return;
    }
  }
  EXPECT_GT(placed, 100U);
}

/// The lines of the label of the only row of a treemap.
std::vector<std::string> tileTexts(const std::string& name, bool isFolder, MapSize size) {
  SampleTree tree;
  if (isFolder) {
    tree.file(tree.folder(name), {"x", 1 << 20, 0, 0});
  } else {
    tree.file(tree.root(), {name, 1 << 20, 0, 0});
    tree.root().keptFiles.push_back({name, 1 << 20, 0, 0});
  }
  tree.root().rollup();
  const auto marks = treemapMarks({tree.shared(), "/sample", Metric::logical}, size, Theme::light());
  FixedWidth font;
  TextWidths widths(font);
  std::vector<std::string> texts;
  for (const PlacedLabel& label : treemapLabels(std::span(marks).first(1), {}, widths)) {
    for (const LabelLine& line : label.lines) texts.push_back(line.text);
  }
  return texts;
}

TEST(Labels, BreakAndCutNamesWherePeopleWould) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(tileTexts("win11-build.qcow2", false, {80, 60}), (Texts{"win11-build", ".qcow2", "1.0 MB"}));
  EXPECT_EQ(tileTexts("Harbour wedding", true, {70, 60}), (Texts{"Harbour", "wedding", "1.0 MB"}));
  EXPECT_EQ(tileTexts("libnccl.so.2", false, {79, 60}), (Texts{"libnccl…o.2", "1.0 MB"}))
      << "a version is no extension";
  EXPECT_EQ(tileTexts("icelandtrip.tar.gz", false, {79, 30}), (Texts{"ic…p.tar.gz"}));
  EXPECT_EQ(tileTexts("tilesforme.mbtiles", false, {79, 30}), (Texts{"tilesforme…"}));
  EXPECT_EQ(tileTexts("Photographs", true, {70, 30}), (Texts{"Photogra…"}));
  EXPECT_EQ(tileTexts("Photographs", true, {40, 30}), Texts()) << "too little would stay";
}

}  // namespace
}  // namespace quon::test
