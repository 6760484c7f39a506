#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

/// Texts that must all occur in a path, which is fed to them piece by piece (Knuth, Morris and Pratt). How
/// much of each is matched so far is a state, so a folder's states are all that the paths below it start
/// from: no path is built, none is searched twice, and no needle makes a piece cost more than its length.
///
/// Threads: any; the states are the caller's.
class Needles {
 public:
  /// One a needle; all 0 before the first piece.
  using States = std::span<std::size_t>;
  using ConstStates = std::span<const std::size_t>;

  explicit Needles(std::vector<std::string> texts);

  [[nodiscard]] std::size_t size() const { return needles.size(); }
  /// The states after one more piece; how many needles are still to be found.
  std::size_t advance(ConstStates from, States to, std::string_view piece) const;
  /// True when none would be left to be found after one more piece.
  [[nodiscard]] bool areFoundWith(ConstStates from, std::string_view piece) const;

 private:
  struct Needle {
    std::string text;
    /// For each prefix but the empty one, the length of its longest proper suffix that is a prefix.
    std::vector<std::size_t> borders;

    [[nodiscard]] std::size_t advance(std::size_t matched, std::string_view piece) const;
  };

  std::vector<Needle> needles;
};

}  // namespace quon
