#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "compare/MachineFacts.h"
#include "compare/Rounds.h"
#include "compare/TreeCounts.h"

namespace quon::bench {

/// All results of a comparison.
struct Report {
  std::vector<ContestantRuns> runs;
  std::vector<std::string> leftOut;  ///< a sentence for each command that could not run
  RoundOptions options;
  MachineFacts machine;
  TreeCounts tree;
  std::uint64_t ownPeakBytes = 0;  ///< peaks at or below it cannot be told apart from this program's own
};

}  // namespace quon::bench
