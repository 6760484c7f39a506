// Three steps: how many folders lie at each depth; which folder of the depth above each one goes into; how
// many files each folder gets. Folders are numbered by depth, so that the folders of one depth are one range
// and a parent's number is always below its children's.

#include "maketree/TreePlan.h"

#include <algorithm>

namespace quon::bench {
namespace {

constexpr std::size_t depths = TreePlan::greatestDepth;

/// Of 10,000 folders, those at depth 1, 2, ... below the root. Mean 7.1.
constexpr std::array<std::uint16_t, depths> depthWeights{20,   100, 300, 700, 1200, 1600, 1800, 1500,
                                                         1100, 700, 450, 270, 150,  70,   30,   10};
/// A folder's share of the files doubles, again and again, as often as this says (of 10,000): a Pareto tail,
/// which gives one folder in about 3,000 more than a thousand times the share of the smallest.
constexpr std::uint32_t doublingChance = 4'500;
constexpr std::uint32_t mostDoublings = 12;
constexpr std::uint32_t emptyChance = 2'000;

/// Folders at each depth; every depth above an occupied one is occupied.
[[nodiscard]] std::array<std::uint32_t, depths> drawDepths(std::uint32_t folderCount, Random& random) {
  std::array<std::uint32_t, depths> counts{};
  for (std::uint32_t folder = 0; folder < folderCount; ++folder) ++counts[random.pick(depthWeights)];
  for (std::size_t depth = 0; depth < depths; ++depth) {
    if (counts[depth] > 0) continue;
    const auto deeper = std::find_if(counts.rbegin(), counts.rend() - static_cast<std::ptrdiff_t>(depth),
                                     [](std::uint32_t count) { return count > 0; });
    if (deeper == counts.rend() - static_cast<std::ptrdiff_t>(depth)) break;
    --*deeper;
    counts[depth] = 1;
  }
  return counts;
}

void placeFolders(TreePlan& plan, const std::array<std::uint32_t, depths>& counts, Random& random) {
  std::uint32_t above = 0;
  std::uint32_t aboveCount = 1;
  std::uint32_t folder = 1;
  for (const std::uint32_t count : counts) {
    const std::uint32_t first = folder;
    for (; folder < first + count; ++folder) {
      // The lesser of two draws: early folders of a depth get many children, late ones few or none.
      PlannedFolder& parent =
          plan.folders[above + std::min(random.below(aboveCount), random.below(aboveCount))];
      plan.folders[folder].nextSibling = parent.firstChild;
      parent.firstChild = folder;
    }
    above = first;
    aboveCount = count;
  }
}

[[nodiscard]] std::uint32_t drawShare(Random& random) {
  if (random.chance(emptyChance)) return 0;
  std::uint32_t doublings = 0;
  while (doublings < mostDoublings && random.chance(doublingChance)) ++doublings;
  const std::uint32_t least = 1U << doublings;
  return least + random.below(least);
}

void placeFiles(TreePlan& plan, std::uint32_t fileCount, Random& random) {
  std::vector<std::uint32_t> shares(plan.folders.size());
  std::ranges::generate(shares, [&] { return drawShare(random); });
  shares.front() = std::max(shares.front(), 1U);

  const std::uint64_t allShares = std::accumulate(shares.begin(), shares.end(), std::uint64_t{0});
  std::uint64_t sharesSoFar = 0;
  std::uint64_t filesSoFar = 0;
  for (std::size_t folder = 0; folder < shares.size(); ++folder) {
    sharesSoFar += shares[folder];
    const std::uint64_t due = sharesSoFar * fileCount / allShares;
    plan.folders[folder].files = static_cast<std::uint32_t>(due - filesSoFar);
    filesSoFar = due;
  }
}

}  // namespace

TreePlan planTree(std::uint32_t fileCount, std::uint32_t folderCount, Random& random) {
  TreePlan plan;
  plan.folders.resize(std::size_t{folderCount} + 1);
  placeFolders(plan, drawDepths(folderCount, random), random);
  placeFiles(plan, fileCount, random);
  return plan;
}

}  // namespace quon::bench
