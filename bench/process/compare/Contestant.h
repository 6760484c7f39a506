#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace quon::bench {

/// One command that is measured.
struct Contestant {
  std::string name;   ///< the word of --only
  std::string title;  ///< the command as the table shows it, without paths
  std::vector<std::string> arguments;
  /// Removed before each run, so that every run saves a new index.
  std::vector<std::filesystem::path> savesInto{};
  bool needsIndex = false;  ///< loads the index that the contestant `indexMaker` saves
};

inline constexpr const char* floorName = "floor";
inline constexpr const char* duName = "du";
/// Saves the index that a contestant with needsIndex loads.
inline constexpr const char* indexMaker = "scan";

struct ContestantPaths {
  std::optional<std::filesystem::path> quon;
  std::filesystem::path floor;
  std::filesystem::path tree;
  std::filesystem::path peerDatabase;               ///< where a peer that saves an index saves it
  std::vector<std::filesystem::path> indexFolders;  ///< where quon saves
};

struct Contestants {
  std::vector<Contestant> running;   ///< in the order in which a round runs them
  std::vector<std::string> leftOut;  ///< a sentence for each command that cannot run
  /// Saves the index when it is loaded in this comparison but its maker is not measured.
  std::optional<Contestant> preparation;
};

/// Every word that --only takes.
[[nodiscard]] std::vector<std::string> contestantNames();

/// The commands to measure: all, or those of `only`. Throws WrongUsage when `only` asks for a command of quon
/// and no path of it was given.
[[nodiscard]] Contestants chooseContestants(const ContestantPaths& paths,
                                            const std::vector<std::string>& only);

}  // namespace quon::bench
