#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/FunctionRef.h"
#include "base/Mutex.h"
#include "lenses/MarkerFiles.h"

namespace quon {

/// Marker files as far as they are known. A question that is new counts as "no", and is kept for `findOut`,
/// which waits for the disk: so whoever asks while others wait for it, as a reader of the tree does, never
/// waits for the disk itself, but asks again. Answers stay until their folder has changed, so that work which
/// is begun anew again and again, as it is beside steady changes, comes to its end.
///
/// Threads: any; `findOut` one at a time.
class KnownMarkers final : public MarkerFiles {
 public:
  [[nodiscard]] bool contains(const std::string& folder, std::string_view name) const override
      QUON_EXCLUDES(lock);
  [[nodiscard]] std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                     std::size_t most) const override QUON_EXCLUDES(lock);

  [[nodiscard]] bool hasNewQuestions() const QUON_EXCLUDES(lock);
  /// Answers the new questions from the disk; false when `cancelled` said so before the last.
  bool findOut(const MarkerFiles& disk, FunctionRef<bool()> cancelled) QUON_EXCLUDES(lock);
  /// The entries of `changed` folders, and all below `replaced` ones, are no longer known. Full paths.
  void forget(const std::vector<std::string>& changed, const std::vector<std::string>& replaced)
      QUON_EXCLUDES(lock);

 private:
  /// A name, and how many of the file's first bytes are wanted; 0 for a question whether the file is there.
  using Marker = std::pair<std::string, std::size_t>;
  using Answers = std::map<Marker, std::optional<std::string>>;  // "" for a file that is there

  mutable Mutex lock;
  std::map<std::string, Answers, std::less<>> known QUON_GUARDED_BY(lock);  // by folder
  mutable std::set<std::pair<std::string, Marker>> open QUON_GUARDED_BY(lock);
  std::optional<std::string> asked QUON_GUARDED_BY(lock);  ///< the folder whose answer is on its way
};

}  // namespace quon
