// The geometry against naive models of it: the same rules written down once more, over all rows and without
// any shortcut.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "RandomScope.h"
#include "map/Dust.h"
#include "map/MarksCache.h"
#include "map/Tiles.h"
#include "map/TopSlot.h"
#include "rows/FolderRows.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

constexpr double kTurn = 2 * std::numbers::pi;

struct Wedge {
  std::string id;
  int depth;
  double a0;
  double a1;
  int slot;
};

int slotOf(const Entry& row, std::size_t position) {
  const auto* folder = std::get_if<RefPtr<DirNode>>(&row.payload);
  return folder == nullptr ? static_cast<int>(position) % 12 : (*folder)->slotIndex;
}

void wedgesOf(const MapScope& scope, const RefPtr<DirNode>& folder, int depth, double a0, double a1, int slot,
              std::vector<Wedge>& wedges) {
  const std::vector<Entry> rows = scopeEntries(folder, scope.rootPath, scope.metric, 500);
  const double total =
      static_cast<double>(scope.metric == Metric::logical ? folder->totalLogical : folder->totalPhysical);
  double at = a0;
  for (std::size_t position = 0; position < rows.size() && total > 0; ++position) {
    const double sweep = (a1 - a0) * static_cast<double>(rows[position].size(scope.metric)) / total;
    const int own = depth == 1 ? slotOf(rows[position], position) : slot;
    if (sweep >= 0.006) {
      wedges.push_back({rows[position].id, depth, at, at + sweep, own});
      const auto* child = std::get_if<RefPtr<DirNode>>(&rows[position].payload);
      if (child != nullptr && sweep > 0.02 && depth < 4) {
        wedgesOf(scope, *child, depth + 1, at, at + sweep, own, wedges);
      }
    }
    at += sweep;
  }
}

TEST(Sunburst, DrawsTheRowsOfEachRingInProportion) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 300; ++round) {
    const RandomScope drawn(random);
    const MapSize size{150.0 + static_cast<double>(random() % 2000),
                       150.0 + static_cast<double>(random() % 2000)};
    const Theme& theme = Theme::of(random() % 2 == 0);
    std::vector<Wedge> expected;
    wedgesOf(drawn.scope, drawn.scope.node, 1, -kTurn / 4, kTurn * 3 / 4, 0, expected);
    const double outer = std::min(size.w, size.h) / 2 - 14;
    const double hole = std::clamp(outer * 0.22, 46.0, 110.0);
    const double ring = (outer - hole) / 4;

    const std::vector<MapMark> marks = sunburstMarks(drawn.scope, size, theme);
    ASSERT_EQ(marks.size(), expected.size());
    std::vector<double> drawnOfRing(5, 0.0);
    for (std::size_t at = 0; at < marks.size(); ++at) {
      const MapMark& mark = marks[at];
      const Wedge& wedge = expected[at];
      ASSERT_EQ(mark.entry.id, wedge.id);
      ASSERT_NEAR(mark.a0, wedge.a0, 1e-9);
      ASSERT_NEAR(mark.a1, wedge.a1, 1e-9);
      ASSERT_NEAR(mark.rIn, hole + ring * (wedge.depth - 1), 1e-9);
      ASSERT_NEAR(mark.rOut - mark.rIn, ring, 1e-9);
      ASSERT_FALSE(mark.isRect);
      ASSERT_EQ(mark.fill, theme.fill(wedge.slot, wedge.depth, mark.isRest()));
      ASSERT_EQ(mark.label.has_value(), (mark.rIn + mark.rOut) / 2 * (mark.a1 - mark.a0) >= 13);
      drawnOfRing[mark.depth] += mark.a1 - mark.a0;
    }
    // What a ring does not draw is dust, to the last bit.
    for (const DustArc& arc : dustOf(marks, drawn.scope, size, theme)) {
      drawnOfRing[static_cast<std::size_t>(std::lround((arc.rIn - hole) / ring)) + 1] += arc.a1 - arc.a0;
    }
    if (!marks.empty()) {
      EXPECT_NEAR(drawnOfRing[1], kTurn, 0.01);
    }
    double divided = 0;
    for (const MapMark& mark : marks) {
      if (mark.depth == 1 && mark.isFolder() && mark.a1 - mark.a0 > 0.02) divided += mark.a1 - mark.a0;
    }
    EXPECT_NEAR(drawnOfRing[2], divided, 0.03);
  }
}

/// The worst aspect ratio of a strip of these areas along a side.
double worstOf(const std::vector<double>& strip, double side) {
  const double thickness = std::accumulate(strip.begin(), strip.end(), 0.0) / side;
  double worst = 0;
  for (const double area : strip) {
    const double length = area / thickness;
    worst = std::max({worst, length / thickness, thickness / length});
  }
  return worst;
}

std::vector<MapRect> naiveCells(MapRect left, std::vector<double> sizes) {
  const double total = std::accumulate(sizes.begin(), sizes.end(), 0.0);
  const double whole = left.w * left.h;
  for (double& size : sizes) size *= whole / total;
  std::vector<MapRect> cells;
  while (cells.size() < sizes.size()) {
    const double side = std::min(left.w, left.h);
    std::vector<double> strip{sizes[cells.size()]};
    while (cells.size() + strip.size() < sizes.size()) {
      std::vector<double> longer = strip;
      longer.push_back(sizes[cells.size() + strip.size()]);
      if (worstOf(longer, side) > worstOf(strip, side) * (1 + 1e-12)) break;
      strip = longer;
    }
    const double thickness = std::accumulate(strip.begin(), strip.end(), 0.0) / side;
    const bool isColumn = left.w >= left.h;
    double at = isColumn ? left.y : left.x;
    for (const double area : strip) {
      const double length = area / thickness;
      cells.push_back(isColumn ? MapRect{left.x, at, thickness, length}
                               : MapRect{at, left.y, length, thickness});
      at += length;
    }
    left = isColumn ? MapRect{left.x + thickness, left.y, left.w - thickness, left.h}
                    : MapRect{left.x, left.y + thickness, left.w, left.h - thickness};
  }
  return cells;
}

TEST(Treemap, FillsStripsAsLongAsTheWorstAspectRatioDoesNotRise) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 300; ++round) {
    std::vector<double> sizes(1 + random() % 61);
    for (double& size : sizes) size = std::exp2(static_cast<double>(random() % 160) / 10);
    std::ranges::sort(sizes, std::greater<>());
    const MapRect area{10, 20, 9.0 + static_cast<double>(random() % 900),
                       9.0 + static_cast<double>(random() % 900)};
    const std::vector<MapRect> cells = squarified(area, sizes);
    const std::vector<MapRect> naive = naiveCells(area, sizes);
    ASSERT_EQ(cells.size(), naive.size());
    for (std::size_t at = 0; at < cells.size(); ++at) {
      ASSERT_NEAR(cells[at].x, naive[at].x, 1e-6);
      ASSERT_NEAR(cells[at].y, naive[at].y, 1e-6);
      ASSERT_NEAR(cells[at].w, naive[at].w, 1e-6);
      ASSERT_NEAR(cells[at].h, naive[at].h, 1e-6);
    }
  }
}

/// Whether one rectangle lies in another, but for rounding.
bool liesIn(const MapRect& inner, const MapRect& outer) {
  constexpr double kRounding = 1e-6;
  return inner.x >= outer.x - kRounding && inner.y >= outer.y - kRounding &&
         inner.right() <= outer.right() + kRounding && inner.bottom() <= outer.bottom() + kRounding;
}

/// The marks directly in the one at this index; those of the scope for none.
std::vector<std::size_t> childrenOf(const std::vector<MapMark>& marks, std::optional<std::size_t> parent) {
  std::vector<std::size_t> children;
  const std::size_t end = parent ? *parent + 1 + marks[*parent].below : marks.size();
  for (std::size_t at = parent ? *parent + 1 : 0; at < end; at += 1 + marks[at].below) children.push_back(at);
  return children;
}

void expectDivided(const std::vector<MapMark>& marks, std::optional<std::size_t> parent, const MapRect& area,
                   const RefPtr<DirNode>& folder, const MapScope& scope) {
  const std::vector<Entry> rows = scopeEntries(folder, scope.rootPath, scope.metric, 60);
  const double total =
      static_cast<double>(scope.metric == Metric::logical ? folder->totalLogical : folder->totalPhysical);
  const std::vector<std::size_t> children = childrenOf(marks, parent);
  if (area.w <= 8 || area.h <= 8) {
    ASSERT_TRUE(children.empty());
  }
  for (std::size_t at = 0; at < children.size(); ++at) {
    const MapMark& mark = marks[children[at]];
    const auto row = std::ranges::find(rows, mark.entry.id, &Entry::id);
    ASSERT_NE(row, rows.end());
    ASSERT_TRUE(mark.isRect);
    ASSERT_EQ(mark.depth, parent ? marks[*parent].depth + 1 : 1);
    ASSERT_NEAR(mark.rect.w * mark.rect.h,
                area.w * area.h * static_cast<double>(row->size(scope.metric)) / total,
                1e-6 * area.w * area.h);
    ASSERT_TRUE(liesIn(mark.rect, area));
    ASSERT_TRUE(mark.rect.w > 1 && mark.rect.h > 1);
    ASSERT_EQ(mark.label.has_value(), mark.rect.w > 36 && mark.rect.h > 15);
    ASSERT_EQ(mark.hasHeader, mark.isFolder() && mark.depth < 3 && mark.rect.w > 80 && mark.rect.h > 60);
    for (std::size_t other = 0; other < at; ++other) {
      const MapRect& before = marks[children[other]].rect;
      const double w = std::min(before.right(), mark.rect.right()) - std::max(before.x, mark.rect.x);
      const double h = std::min(before.bottom(), mark.rect.bottom()) - std::max(before.y, mark.rect.y);
      ASSERT_TRUE(w < 1e-6 || h < 1e-6) << "cells overlap";
    }
    if (!mark.hasHeader) {
      ASSERT_EQ(mark.below, 0U);
      continue;
    }
    const MapRect content = contentOf(mark.rect, mark.depth);
    expectDivided(marks, children[at], content, std::get<RefPtr<DirNode>>(mark.entry.payload), scope);
    // What is drawn of the children stays off the parent's edges.
    const MapRect tile = tileOf(mark.rect, mark.depth);
    for (const std::size_t child : childrenOf(marks, children[at])) {
      ASSERT_TRUE(liesIn(tileOf(marks[child].rect, mark.depth + 1),
                         {tile.x + 3, tile.y + 20, tile.w - 6, tile.h - 23}));
    }
  }
}

TEST(Treemap, DividesEachFolderAmongItsRowsInProportion) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 200; ++round) {
    const RandomScope drawn(random);
    const MapSize size{static_cast<double>(random() % 1500), static_cast<double>(random() % 1500)};
    const std::vector<MapMark> marks = treemapMarks(drawn.scope, size, Theme::light());
    expectDivided(marks, std::nullopt, {0, 0, size.w, size.h}, drawn.scope.node, drawn.scope);
    if (HasFatalFailure()) return;
  }
}

TEST(Hit, IsTheDeepestMarkThatContainsThePoint) {
  std::mt19937_64 random(randomSeed());
  for (int round = 0; round < 60; ++round) {
    const RandomScope drawn(random);
    const MapSize size{300.0 + static_cast<double>(random() % 900),
                       300.0 + static_cast<double>(random() % 900)};
    const std::vector<MapMark> wedges = sunburstMarks(drawn.scope, size, Theme::light());
    const std::vector<MapMark> tiles = treemapMarks(drawn.scope, size, Theme::light());
    for (int point = 0; point < 300; ++point) {
      const MapPoint at{static_cast<double>(random() % 12000) / 10,
                        static_cast<double>(random() % 12000) / 10};
      const double x = at.x - size.w / 2;
      const double y = at.y - size.h / 2;
      // Clockwise from twelve o'clock.
      double angle = std::atan2(x, -y);
      if (angle < 0) angle += kTurn;
      const MapMark* wedge = nullptr;
      for (const MapMark& mark : wedges) {
        const bool isThere = std::hypot(x, y) >= mark.rIn && std::hypot(x, y) < mark.rOut &&
                             angle >= mark.a0 + kTurn / 4 && angle < mark.a1 + kTurn / 4;
        if (isThere) wedge = &mark;
      }
      ASSERT_EQ(hit(wedges, at, size), wedge) << at.x << " " << at.y;
      ASSERT_FALSE(wedge != nullptr && isInHole(at, size));
      const MapMark* tile = nullptr;
      for (const MapMark& mark : tiles) {
        if (mark.rect.contains(at)) tile = &mark;
      }
      ASSERT_EQ(hit(tiles, at, size), tile);
    }
  }
}

TEST(Marks, OfExtremesAreFewAndFinite) {
  SampleTree tree;
  MapScope scope{nullptr, "/sample", Metric::logical};
  const MapSize size{800, 700};
  EXPECT_TRUE(sunburstMarks(scope, size, Theme::light()).empty());
  EXPECT_TRUE(treemapMarks(scope, size, Theme::light()).empty());
  scope.node = tree.shared();
  for (int at = 0; at < 100'000; ++at) tree.folder("empty" + std::to_string(at));
  tree.root().rollup();
  EXPECT_TRUE(sunburstMarks(scope, size, Theme::light()).empty()) << "no row has a size";
  EXPECT_TRUE(treemapMarks(scope, size, Theme::light()).empty());
  EXPECT_TRUE(dustOf({}, scope, size, Theme::light()).empty());

  const FileEntry huge{"huge", std::uint64_t{1} << 63U, 1, 0};
  tree.file(tree.root(), huge);
  tree.root().keptFiles.push_back(huge);
  tree.file(tree.root(), {"small", (std::uint64_t{1} << 63U) - 200'000, 1, 0});
  for (const RefPtr<DirNode>& folder : tree.root().subdirs) tree.file(*folder, {"x", 1, 0, 0});
  tree.root().rollup();
  for (const auto& marks :
       {sunburstMarks(scope, size, Theme::light()), treemapMarks(scope, size, Theme::light())}) {
    ASSERT_EQ(marks.size(), 2U);
    EXPECT_EQ(marks[0].entry.name, "huge");
    EXPECT_EQ(marks[1].entry.name, "smaller items");
  }
  EXPECT_TRUE(treemapMarks(scope, {8, 700}, Theme::light()).empty());
  EXPECT_TRUE(treemapMarks(scope, {700, 8}, Theme::light()).empty());
  EXPECT_EQ(treemapMarks(scope, {9, 9}, Theme::light()).size(), 2U);
  EXPECT_TRUE(sunburstMarks(scope, {119, 800}, Theme::light()).empty()) << "no room beside the hole";
  EXPECT_EQ(sunburstMarks(scope, {121, 800}, Theme::light()).size(), 2U);
}

TEST(MarksCache, ComputesAgainOnlyWhatChanged) {
  SampleTree tree;
  const MapView view{{tree.shared(), "/sample", Metric::logical}, MapMode::treemap, 1};
  MapView below = view;
  below.scope.node = &tree.folder("below");
  for (DirNode* folder : {&tree.root(), below.scope.node.get()}) tree.file(*folder, {"f", 10, 10, 0});
  tree.root().rollup();
  MarksCache cache;
  const MarksCache::Marks* const first = &cachedMarks(cache, view, {400, 300}, Theme::light());
  const Colour light = first->front().fill;
  tree.file(tree.root(), {"unseen until the version rises", 10, 10, 0});
  EXPECT_FALSE(cachedMarks(cache, below, {400, 300}, Theme::light()).empty());
  EXPECT_EQ(&cachedMarks(cache, view, {400, 300}, Theme::light()), first) << "another scope dropped it";
  EXPECT_NE(cachedMarks(cache, view, {400, 300}, Theme::dark()).front().fill, light);
  // A change of any part of the stamp is seen, also when it changes back.
  const std::uint64_t before = 7;
  int computed = 0;
  const Stamp stamp{MapMode::sunburst, Metric::logical, before, 4, 3, false};
  std::vector<Stamp> others(6, stamp);
  others[0].mode = MapMode::treemap;
  others[1].metric = Metric::physical;
  others[2].version = before + 1;
  others[3].w = 5;
  others[4].h = 5;
  others[5].dark = true;
  for (const Stamp& other : others) {
    for (const Stamp& each : {stamp, stamp, other, other}) {
      (void)cache.marks(view.scope.node, each, [&] { return ++computed, MarksCache::Marks(); });
    }
  }
  EXPECT_EQ(computed, 12);
}

TEST(TopSlot, IsThatOfTheScopesRowWhichContainsIt) {
  SampleTree tree;
  DirNode& top = tree.folder("top");
  DirNode& scope = tree.folder("scope", &top);
  DirNode& child = tree.folder("child", &scope);
  DirNode& deep = tree.folder("deep", &child);
  DirNode& aside = tree.folder("aside", &tree.folder("other"));
  tree.root().subdirs[1]->slotIndex = 3;
  top.slotIndex = 4;
  scope.slotIndex = 5;
  child.slotIndex = 6;
  deep.slotIndex = 7;
  EXPECT_EQ(topSlot(deep, scope), 6);
  EXPECT_EQ(topSlot(child, scope), 6);
  EXPECT_EQ(topSlot(deep, tree.root()), 4);
  EXPECT_EQ(topSlot(aside, scope), 3) << "outside the scope: the folder below the root";
  EXPECT_EQ(topSlot(scope, scope), std::nullopt);
  const FileEntry file{"f", 1, 1, 1};
  EXPECT_EQ(topSlot(Entry::ofFile(file, RefPtr<DirNode>(&scope), "/"), 14, scope), 2);
  EXPECT_EQ(topSlot(Entry::ofFile(file, RefPtr<DirNode>(&deep), "/"), 14, scope), 6);
}

}  // namespace
}  // namespace quon::test
