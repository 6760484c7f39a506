#include "compare/Summary.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace quon::bench {
namespace {

[[nodiscard]] bool allSucceeded(const ContestantRuns& runs) {
  return std::ranges::all_of(runs.outcomes, &ChildOutcome::succeeded);
}

[[nodiscard]] std::string describeFailure(const ContestantRuns& runs) {
  const auto failed = std::ranges::find_if_not(runs.outcomes, &ChildOutcome::succeeded);
  const auto count =
      std::ranges::count_if(runs.outcomes, [](const ChildOutcome& outcome) { return !outcome.succeeded(); });
  return fmt::format("{} in {} of {} runs", describeEnd(*failed), count, runs.outcomes.size());
}

[[nodiscard]] std::optional<double> ratioTo(std::string_view name, const ContestantRuns& runs,
                                            const std::vector<ContestantRuns>& all) {
  const auto base =
      std::ranges::find(all, name, [](const ContestantRuns& other) { return other.contestant.name; });
  if (base == all.end() || !allSucceeded(*base)) return std::nullopt;
  std::vector<double> ratios;
  for (std::size_t round = 0; round < runs.outcomes.size(); ++round) {
    ratios.push_back(runs.outcomes[round].wallSeconds / base->outcomes[round].wallSeconds);
  }
  return median(std::move(ratios));
}

[[nodiscard]] Figures figuresOf(const ContestantRuns& runs, const std::vector<ContestantRuns>& all) {
  std::vector<double> walls;
  std::vector<double> processor;
  std::uint64_t peakBytes = 0;
  for (const ChildOutcome& outcome : runs.outcomes) {
    walls.push_back(outcome.wallSeconds);
    processor.push_back(outcome.userSeconds + outcome.systemSeconds);
    peakBytes = std::max(peakBytes, outcome.peakBytes);
  }
  return {.wallMedian = median(walls),
          .wallLeast = std::ranges::min(walls),
          .wallMost = std::ranges::max(walls),
          .processorMedian = median(std::move(processor)),
          .peakBytes = peakBytes,
          .toFloor = ratioTo(floorName, runs, all),
          .toDu = ratioTo(duName, runs, all)};
}

}  // namespace

std::vector<ContestantSummary> summarize(const std::vector<ContestantRuns>& runs) {
  std::vector<ContestantSummary> summaries;
  for (const ContestantRuns& run : runs) {
    ContestantSummary summary{.contestant = run.contestant, .figures = std::nullopt, .failure = {}};
    if (allSucceeded(run)) {
      summary.figures = figuresOf(run, runs);
    } else {
      summary.failure = describeFailure(run);
    }
    summaries.push_back(std::move(summary));
  }
  return summaries;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace quon::bench
