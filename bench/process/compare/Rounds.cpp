#include "compare/Rounds.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>

#include "compare/PageCache.h"

namespace quon::bench {
namespace {

[[nodiscard]] ChildOutcome runOnce(const Contestant& contestant, const PrivateFolder& folder, bool cold) {
  for (const auto& saved : contestant.savesInto) std::filesystem::remove_all(saved);
  folder.settle();
  if (cold) dropCaches();
  return runChild(contestant.arguments, folder.environment());
}

void prepareIndex(const Contestant& maker, const PrivateFolder& folder) {
  const ChildOutcome outcome = runOnce(maker, folder, false);
  if (outcome.succeeded()) return;
  throw std::runtime_error(
      fmt::format("no index to load: {} ended with {}", maker.title, describeEnd(outcome)));
}

}  // namespace

std::vector<ContestantRuns> runRounds(const Contestants& contestants, const RoundOptions& options,
                                      const PrivateFolder& folder,
                                      const std::function<void(const std::string&)>& progress) {
  if (contestants.preparation) {
    progress("saving the index to load");
    prepareIndex(*contestants.preparation, folder);
  }
  const std::size_t warmUps =
      options.cold ? std::min<std::size_t>(1, contestants.running.size()) : contestants.running.size();
  for (std::size_t at = 0; at < warmUps; ++at) {
    progress(fmt::format("warming up: {}", contestants.running[at].title));
    // How it ends is of no interest: a command that fails here fails in the counted rounds too, and is
    // reported there.
    static_cast<void>(runOnce(contestants.running[at], folder, options.cold));
  }

  std::vector<ContestantRuns> runs;
  for (const Contestant& contestant : contestants.running) runs.push_back({contestant, {}});
  for (int round = 1; round <= options.rounds; ++round) {
    for (ContestantRuns& run : runs) {
      progress(fmt::format("round {} of {}: {}", round, options.rounds, run.contestant.title));
      run.outcomes.push_back(runOnce(run.contestant, folder, options.cold));
    }
  }
  return runs;
}

}  // namespace quon::bench
