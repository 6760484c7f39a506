// quon-compare: runs whole commands in turn on one tree and compares their time and memory with the
// system-call floor and with each other. This program stays small on purpose: its own memory is the least
// peak that it can measure.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "compare/Contestant.h"
#include "compare/Interrupt.h"
#include "compare/PageCache.h"
#include "compare/PrivateFolder.h"
#include "compare/RawFigures.h"
#include "compare/Report.h"
#include "compare/Rounds.h"
#include "compare/Summary.h"
#include "compare/Table.h"
#include "compare/TreeCounts.h"
#include "shared/CommandLine.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

struct Arguments {
  std::string quon;
  std::string floor;
  std::string tree;
  std::string json;
  std::string markdown;
  std::vector<std::string> only;
  RoundOptions options;
};

void printProgress(const std::string& line) {
  if (::isatty(STDERR_FILENO) == 1) fmt::print(stderr, "{}\n", line);
}

/// Reports a wrong path before the measuring instead of after it. The file keeps its content until there is a
/// result.
void checkWritable(const std::string& path) {
  if (path.empty()) return;
  const std::ofstream file(path, std::ios::binary | std::ios::app);
  if (!file) throw SystemFailure("writing", path, errno);
}

void writeOutput(const std::string& path, const std::string& text) {
  if (path.empty()) return;
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(text.data(), static_cast<std::streamsize>(text.size()));
  file.close();
  if (!file) throw SystemFailure("writing", path, errno);
}

[[nodiscard]] ContestantPaths resolvePaths(const Arguments& arguments, const PrivateFolder& folder) {
  ContestantPaths paths;
  if (!arguments.quon.empty()) paths.quon = std::filesystem::canonical(arguments.quon);
  paths.floor = std::filesystem::canonical(arguments.floor);
  paths.tree = std::filesystem::canonical(arguments.tree);
  paths.peerDatabase = folder.path() / "duc.db";
  paths.indexFolders = folder.baseFolders();
  return paths;
}

/// Measures; the private folder is gone when it returns.
[[nodiscard]] Report measure(const Arguments& arguments) {
  const PrivateFolder folder;
  const ContestantPaths paths = resolvePaths(arguments, folder);
  const Contestants contestants = chooseContestants(paths, arguments.only);
  if (contestants.running.empty()) throw std::runtime_error("none of the chosen commands can be run");

  Report report;
  report.options = arguments.options;
  report.leftOut = contestants.leftOut;
  report.machine = readMachineFacts(paths.tree);
  report.tree = countTree(paths, folder);
  report.runs = runRounds(contestants, arguments.options, folder, printProgress);
  report.ownPeakBytes = ownPeakBytes();
  return report;
}

[[nodiscard]] int compare(const Arguments& arguments) {
  if (arguments.options.cold) checkMayDropCaches();
  checkWritable(arguments.json);
  checkWritable(arguments.markdown);
  rememberInterrupts();
  try {
    const Report report = measure(arguments);
    const std::vector<ContestantSummary> summaries = summarize(report.runs);
    const std::string table = markdownTable(report, summaries);
    fmt::print("{}", table);
    writeOutput(arguments.markdown, table);
    writeOutput(arguments.json, rawFigures(report));
    const bool allRan =
        std::ranges::all_of(summaries, [](const auto& summary) { return summary.figures.has_value(); });
    return allRan ? exitDone : exitFailed;
  } catch (const Interrupted& stop) {
    fmt::print(stderr, "quon-compare: {}\n", stop.what());
    return exitInterrupted;
  }
}

void defineOptions(CLI::App& app, Arguments& arguments) {
  app.add_option("--quon", arguments.quon, "path of quon; without it only the others run")
      ->check(CLI::ExistingFile);
  app.add_option("--floor", arguments.floor, "path of quon-floor")->required()->check(CLI::ExistingFile);
  app.add_option("--tree", arguments.tree, "the folder to measure on")
      ->required()
      ->check(CLI::ExistingDirectory);
  app.add_option("--rounds", arguments.options.rounds, "counted rounds")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000));
  app.add_flag("--cold", arguments.options.cold, "empty the kernel's caches before each run; needs root");
  app.add_option("--json", arguments.json, "write the raw figures to this file");
  app.add_option("--markdown", arguments.markdown, "write the table to this file too");
  app.add_option("--only", arguments.only, "measure only these commands")
      ->delimiter(',')
      ->check(CLI::IsMember(contestantNames()));
}

}  // namespace
}  // namespace quon::bench

int main(int argc, char** argv) {
  using namespace quon::bench;
  return runCommand<Arguments>(
      {"quon-compare", "Runs whole commands in turn on one tree and compares their time and memory.", argc,
       argv},
      defineOptions, compare);
}
