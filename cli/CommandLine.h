#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "map/MapMode.h"
#include "rows/Entry.h"

namespace quon::cli {

/// The picture that `map` is to draw.
struct MapPicture {
  std::string file;  ///< ends in .svg or .png
  MapMode mode = MapMode::sunburst;
  unsigned width = 1200;
  unsigned height = 800;
  unsigned scale = 1;  ///< pixels to a point, in a .png
  bool dark = false;

  [[nodiscard]] bool isVector() const { return file.ends_with(".svg"); }
};

/// What was typed on the command line.
struct Command {
  enum class Verb {
    scan,
    ls,
    largest,
    kinds,
    untouched,
    reclaim,
    names,
    search,
    map,
    commands,
    indexes,
    watch,
    refresh,
    trash,
    record
  };

  Verb verb = Verb::ls;
  std::string path;  ///< as typed; "" when none was given
  bool json = false;
  Metric metric = Metric::logical;
  std::size_t limit = 500;
  unsigned threads = 0;  ///< scan: 0 for the program's own choice
  bool saveIndex = true;
  bool crossDevices = false;
  bool catchUp = true;                  ///< bring a saved index up to date before answering
  std::string name;                     ///< names: list the files of this name; "" for the table of names
  std::int64_t olderThan = 31'536'000;  ///< untouched: seconds
  std::string text;                     ///< search, commands: the words that were typed, joined
  std::vector<std::string> items;       ///< trash: paths as typed
  bool yes = false;                     ///< trash: does not ask
  bool dryRun = false;                  ///< trash: says what would be moved
  bool listTrash = false;               ///< trash: what the trashes contain
  bool collect = false;                 ///< indexes: remove those of no use first
  MapPicture map;
};

/// The exit status of a command line, or of a search, that cannot be understood.
inline constexpr int kWrongUsage = 2;

/// The command, or the exit status when there is nothing left to do: help or an error was printed.
[[nodiscard]] std::variant<Command, int> parseCommandLine(int count, char** arguments);

}  // namespace quon::cli
