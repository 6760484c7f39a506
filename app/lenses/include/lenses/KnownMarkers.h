#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "base/FunctionRef.h"
#include "lenses/MarkerFiles.h"

namespace quon {

/// Marker files as far as they are known. A question that is new counts as "no", and is kept for `findOut`,
/// which waits for the disk: so whoever asks while others wait for it, as a reader of the tree does, never waits
/// for the disk itself, but asks again.
///
/// Threads: confined to one.
class KnownMarkers final : public MarkerFiles {
 public:
  /// `real` outlives it.
  explicit KnownMarkers(const MarkerFiles& real) : disk(real) {}

  [[nodiscard]] bool contains(const std::string& folder, std::string_view name) const override;
  [[nodiscard]] std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                     std::size_t most) const override;

  [[nodiscard]] bool hasNewQuestions() const { return !open.empty(); }
  /// Answers the new questions from the disk; false when `cancelled` said so before the last.
  bool findOut(FunctionRef<bool()> cancelled);

 private:
  /// Folder, name, and how many of the first bytes are wanted; 0 for a question whether the file is there.
  using Question = std::tuple<std::string, std::string, std::size_t>;

  const MarkerFiles& disk;
  std::map<Question, std::optional<std::string>> known;  // "" for a file that is there
  mutable std::vector<Question> open;
};

}  // namespace quon
