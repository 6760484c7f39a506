#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "compare/Rounds.h"

namespace quon::bench {

/// A contestant's rounds in a few figures.
struct Figures {
  double wallMedian = 0;  ///< seconds, like the next three
  double wallLeast = 0;
  double wallMost = 0;
  double processorMedian = 0;   ///< user and system time together
  std::uint64_t peakBytes = 0;  ///< the greatest of all rounds
  /// Medians of the ratios within each round; nothing when the one to compare with was not run or failed.
  std::optional<double> toFloor;
  std::optional<double> toDu;
};

struct ContestantSummary {
  Contestant contestant;
  std::optional<Figures> figures;  ///< nothing when a round failed: figures of the others would hide it
  std::string failure;             ///< then how, e.g. `exit status 1 in 5 of 5 runs`
};

[[nodiscard]] std::vector<ContestantSummary> summarize(const std::vector<ContestantRuns>& runs);

/// The middle value, or the mean of the two in the middle. `values` is not empty.
[[nodiscard]] double median(std::vector<double> values);

}  // namespace quon::bench
