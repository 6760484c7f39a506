#pragma once

#include <functional>
#include <string>
#include <vector>

#include "compare/ChildProcess.h"
#include "compare/Contestant.h"
#include "compare/PrivateFolder.h"

namespace quon::bench {

struct RoundOptions {
  int rounds = 5;
  bool cold = false;  ///< empty the kernel's caches before each single run
};

/// The outcomes of one contestant, one for each round.
struct ContestantRuns {
  Contestant contestant;
  std::vector<ChildOutcome> outcomes;
};

/// Runs all contestants in turn, round after round, so that what disturbs the machine for a while disturbs
/// all alike. Before that, uncounted: with warm caches a whole round; with cold ones only the first
/// contestant, so that access times of folders, which the kernel renews once a day, are renewed before the
/// rounds. A contestant that saves an index finds none. `progress` gets a line before each run.
[[nodiscard]] std::vector<ContestantRuns> runRounds(const Contestants& contestants,
                                                    const RoundOptions& options, const PrivateFolder& folder,
                                                    const std::function<void(const std::string&)>& progress);

}  // namespace quon::bench
