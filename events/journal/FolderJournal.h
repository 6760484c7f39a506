#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/Events.h"

namespace quon {

/// What changed below one root since it has been covered: a mark for each changed folder. It serves clients
/// of this recorder only, since no other knows what happened before it began, and so it is kept in memory,
/// within a bound.
///
/// Threads: one at a time.
class FolderJournal {
 public:
  /// More changed folders than any client applies one by one: with more, it reads all from the disk.
  static constexpr std::size_t kMostMarks = 65536;

  explicit FolderJournal(std::string root, std::size_t mostMarks = kMostMarks);

  /// The root is covered from now on; what was known before is forgotten.
  void begin(std::uint64_t id);
  /// Nothing is known any more.
  void end() { begin(0); }
  /// From this identifier on every change is in it; 0 when the root is not covered.
  [[nodiscard]] std::uint64_t since() const { return coveredSince; }

  /// A change, with an identifier above all before it. When there are too many marks, those of folders that
  /// are gone are folded into the nearest one that exists, and if that is not enough the oldest are
  /// forgotten, and since() moves up.
  void mark(const std::string& path, std::uint64_t id, bool deep);
  /// The folders that changed after an identifier not below since(), in the order of their newest changes.
  /// Reads the disk: none that is gone is among them.
  [[nodiscard]] std::vector<FolderEvent> changesSince(std::uint64_t id);
  [[nodiscard]] std::size_t size() const { return marks.size(); }

 private:
  struct Mark {
    std::uint64_t id = 0;      ///< of the newest change
    std::uint64_t deepId = 0;  ///< of the newest change that concerned everything below; 0 for none
  };
  void fold(std::uint64_t changedAfter);
  void forgetOldest();

  const std::string root;
  const std::size_t mostMarks;
  std::uint64_t coveredSince = 0;
  boost::unordered_flat_map<std::string, Mark> marks;
};

}  // namespace quon
