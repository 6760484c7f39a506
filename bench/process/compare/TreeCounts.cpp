#include "compare/TreeCounts.h"

#include <charconv>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "compare/ChildProcess.h"
#include "shared/CommandLine.h"

namespace quon::bench {
namespace {

/// The number after `key=` in a line of such pairs.
[[nodiscard]] std::uint64_t valueOf(std::string_view key, std::string_view line) {
  const std::string searched = fmt::format("{}=", key);
  const std::size_t found = line.find(searched);
  std::uint64_t value = 0;
  if (found != std::string_view::npos) {
    const std::string_view digits = line.substr(found + searched.size());
    if (std::from_chars(digits.data(), digits.data() + digits.size(), value).ec == std::errc()) return value;
  }
  throw std::runtime_error(fmt::format("--floor: the program's line has no number for {}", key));
}

}  // namespace

TreeCounts countTree(const ContestantPaths& paths, const PrivateFolder& folder) {
  const std::string output = (folder.path() / "floor.txt").string();
  const ChildOutcome outcome =
      runChild({paths.floor.string(), paths.tree.string()}, folder.environment(), output);
  if (outcome.signal != 0 || outcome.exitStatus > exitFailed) {
    throw std::runtime_error(fmt::format("--floor: the program ended with {}", describeEnd(outcome)));
  }
  std::ifstream file(output);
  std::string line;
  std::getline(file, line);
  return {.files = valueOf("files", line),
          .folders = valueOf("folders", line),
          .logical = valueOf("logical", line),
          .physical = valueOf("physical", line)};
}

}  // namespace quon::bench
