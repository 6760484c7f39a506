#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

/// Texts that must all occur in a path, which is given piece by piece, each piece but the first being "/" and
/// a name. How much of each text is matched so far is a state, so a folder's states are all that the paths
/// below it start from: no path is built and none is searched twice.
///
/// A text without "/" lies in one piece and is searched for with the algorithm of Boyer, Moore and Horspool;
/// one with "/" may go on from one piece into the next, and is followed with that of Knuth, Morris and Pratt.
///
/// Threads: any; the states are the caller's.
class SearchTerms {
 public:
  /// One for each text; all 0 before the first piece.
  using States = std::span<std::size_t>;
  using ConstStates = std::span<const std::size_t>;

  explicit SearchTerms(std::vector<std::string> wanted);
  SearchTerms(const SearchTerms&) = delete;  // the searchers point into the texts
  SearchTerms& operator=(const SearchTerms&) = delete;

  [[nodiscard]] std::size_t size() const { return terms.size(); }
  /// Writes the states after one more piece; returns how many texts have not occurred yet.
  std::size_t advance(ConstStates from, States to, std::string_view piece) const;
  /// True when all texts have occurred after one more piece.
  [[nodiscard]] bool occurWith(ConstStates from, std::string_view piece) const;

 private:
  class Term {
   public:
    explicit Term(const std::string& wanted);

    [[nodiscard]] std::size_t advance(std::size_t matched, std::string_view piece) const;
    [[nodiscard]] bool isWhole(std::size_t matched) const { return matched == text.size(); }

   private:
    [[nodiscard]] std::size_t follow(std::size_t matched, std::string_view piece) const;

    const std::string& text;
    /// For each prefix but the empty one, the length of its longest proper suffix that is a prefix; empty for
    /// a text without "/".
    std::vector<std::size_t> borders;
    std::boyer_moore_horspool_searcher<std::string::const_iterator> searcher;
  };

  const std::vector<std::string> texts;
  std::vector<Term> terms;
};

}  // namespace quon
