#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/Observed.h"

namespace quon {

/// Something that does not work at present, for the person who uses the program.
struct Problem {
  enum class Kind : std::uint8_t {
    notScanned,  ///< the folder could not be scanned
    notLoaded,   ///< the saved index could not be used, and the folder was scanned instead
    notSaved,    ///< the scan has no saved index, so nothing keeps it current
    notWatched,  ///< live updates are paused
    unreadable,  ///< folders are missing from the totals
    settings,    ///< settings could not be read or kept
    lens,        ///< what is shown could not be worked out
    catalogue,   ///< saved indexes could not be listed or collected
  };
  Kind kind = Kind::notScanned;
  std::string text;  ///< what happened, to what, why, and what to do; fit to be shown

  friend bool operator==(const Problem&, const Problem&) = default;
};

/// The problems that stand, at most one of a kind. Threads: main only.
class Problems {
 public:
  Observed<std::vector<Problem>> _problems;

  explicit Problems(Notifications& notifications) : _problems(notifications) {}

  void raise(Problem::Kind kind, std::string text);
  void clear(Problem::Kind kind);
  /// The text of the problem; "" when it does not stand.
  [[nodiscard]] std::string problem(Problem::Kind kind) const;
};

}  // namespace quon
