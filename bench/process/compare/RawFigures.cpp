#include "compare/RawFigures.h"

#include <nlohmann/json.hpp>

namespace quon::bench {
namespace {

using Json = nlohmann::ordered_json;

[[nodiscard]] Json runFigures(const ChildOutcome& outcome) {
  return {{"wallSeconds", outcome.wallSeconds},     {"userSeconds", outcome.userSeconds},
          {"systemSeconds", outcome.systemSeconds}, {"peakBytes", outcome.peakBytes},
          {"exitStatus", outcome.exitStatus},       {"signal", outcome.signal}};
}

}  // namespace

std::string rawFigures(const Report& report) {
  Json commands = Json::array();
  for (const ContestantRuns& runs : report.runs) {
    Json outcomes = Json::array();
    for (const ChildOutcome& outcome : runs.outcomes) outcomes.push_back(runFigures(outcome));
    commands.push_back({{"name", runs.contestant.name},
                        {"title", runs.contestant.title},
                        {"arguments", runs.contestant.arguments},
                        {"runs", std::move(outcomes)}});
  }
  const Json document = {{"machine",
                          {{"cores", report.machine.cores},
                           {"memoryBytes", report.machine.memoryBytes},
                           {"kernel", report.machine.kernel},
                           {"fileSystem", report.machine.fileSystem}}},
                         {"tree",
                          {{"files", report.tree.files},
                           {"folders", report.tree.folders},
                           {"logical", report.tree.logical},
                           {"physical", report.tree.physical}}},
                         {"cold", report.options.cold},
                         {"ownPeakBytes", report.ownPeakBytes},
                         {"leftOut", report.leftOut},
                         {"commands", std::move(commands)}};
  // Paths among the arguments need not be UTF-8; the figures matter more than a foreign byte.
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

}  // namespace quon::bench
