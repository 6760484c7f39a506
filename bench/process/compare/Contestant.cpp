#include "compare/Contestant.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <string_view>
#include <unistd.h>

#include "shared/CommandLine.h"

namespace quon::bench {
namespace {

enum class Program { floor, quon, peer };

struct Entry {
  Program program;
  Contestant contestant;  ///< its first argument is a bare name; a peer's is searched in $PATH
};

[[nodiscard]] std::vector<Entry> allEntries(const ContestantPaths& paths) {
  const std::string tree = paths.tree.string();
  const std::string database = paths.peerDatabase.string();
  return {
      {Program::floor, {floorName, "quon-floor", {"quon-floor", tree}}},
      {Program::quon, {"scan-no-index", "quon scan --no-index", {"quon", "scan", "--no-index", tree}}},
      {Program::quon, {indexMaker, "quon scan", {"quon", "scan", tree}, paths.indexFolders}},
      {Program::quon, {"ls", "quon ls --no-catch-up", {"quon", "ls", tree, "--no-catch-up"}, {}, true}},
      {Program::peer, {duName, "du -s", {"du", "-s", tree}}},
      {Program::peer, {"ncdu", "ncdu -0xo /dev/null", {"ncdu", "-0xo", "/dev/null", tree}}},
      {Program::peer, {"gdu", "gdu -npc", {"gdu", "-npc", tree}}},
      {Program::peer,
       {"duc", "duc index -x -d FILE", {"duc", "index", "-x", "-d", database, tree}, {paths.peerDatabase}}},
  };
}

[[nodiscard]] std::optional<std::string> findInPath(std::string_view program) {
  const char* variable = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): this program has one thread
  std::string_view left = variable == nullptr ? "/usr/bin:/bin" : variable;
  while (!left.empty()) {
    const std::string_view folder = left.substr(0, left.find(':'));
    left.remove_prefix(std::min(left.size(), folder.size() + 1));
    const std::filesystem::path candidate = std::filesystem::path(folder) / program;
    if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate.string();
  }
  return std::nullopt;
}

/// Puts the program's real path first, or says why the contestant cannot run.
[[nodiscard]] std::optional<std::string> resolve(Entry& entry, const ContestantPaths& paths) {
  std::string& program = entry.contestant.arguments.front();
  switch (entry.program) {
    case Program::floor:
      program = paths.floor.string();
      return std::nullopt;
    case Program::quon:
      if (!paths.quon) return fmt::format("`{}` was left out: no --quon was given.", entry.contestant.title);
      program = paths.quon->string();
      return std::nullopt;
    case Program::peer:
      break;
  }
  const std::optional<std::string> found = findInPath(program);
  if (!found) return fmt::format("`{}` was left out: {} is not installed.", entry.contestant.title, program);
  program = *found;
  return std::nullopt;
}

}  // namespace

std::vector<std::string> contestantNames() {
  std::vector<std::string> names;
  for (const Entry& entry : allEntries({})) names.push_back(entry.contestant.name);
  return names;
}

Contestants chooseContestants(const ContestantPaths& paths, const std::vector<std::string>& only) {
  Contestants chosen;
  std::optional<Contestant> maker;
  bool makerRuns = false;
  bool indexNeeded = false;
  for (Entry& entry : allEntries(paths)) {
    const bool wanted = only.empty() || std::ranges::find(only, entry.contestant.name) != only.end();
    const std::optional<std::string> obstacle = resolve(entry, paths);
    if (entry.contestant.name == indexMaker && !obstacle) maker = entry.contestant;
    if (!wanted) continue;
    if (obstacle) {
      if (entry.program == Program::quon && !only.empty()) {
        throw WrongUsage(fmt::format("--only {} needs --quon", entry.contestant.name));
      }
      chosen.leftOut.push_back(*obstacle);
      continue;
    }
    makerRuns = makerRuns || entry.contestant.name == indexMaker;
    indexNeeded = indexNeeded || entry.contestant.needsIndex;
    chosen.running.push_back(std::move(entry.contestant));
  }
  if (indexNeeded && !makerRuns) chosen.preparation = maker;
  return chosen;
}

}  // namespace quon::bench
