#include "search/TreeSearch.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "SearchTerms.h"
#include "search/FoldedText.h"

// A name is the end of its path, so a term occurs in the name or the path exactly when it occurs in the path:
// terms and path terms are one set of texts. The walk keeps an explicit stack with the texts' states of each
// folder on it; below a folder whose path contains them all no name is read. Matches are pointers until the
// walk is over, and only the largest become rows: making, sorting and freeing a row for each of 112,000
// matches took five times as long as finding them.

namespace quon {
namespace {

struct Match {
  DirNode* folder;        // that matches, or contains the file
  const FileEntry* file;  // none for a folder
  std::uint64_t size;
  std::size_t order;
};

/// Checks whether the search was cancelled, at once and then whenever as much work as 1,024 rows has been
/// done.
class CancelCheck {
 public:
  explicit CancelCheck(FunctionRef<bool()> check) : cancelled(check) {}

  /// True when the search is to stop. `cost` counts rows examined.
  [[nodiscard]] bool stopsAfter(std::size_t cost) {
    if (left > cost) {
      left -= cost;
      return false;
    }
    left = kRows;
    return cancelled();
  }

 private:
  static constexpr std::size_t kRows = 1024;

  FunctionRef<bool()> cancelled;
  std::size_t left = 0;
};

std::vector<std::string> textsOf(const TokenQuery& query) {
  std::vector<std::string> texts;
  for (const std::string& term : query.terms) texts.push_back(folded(term));
  for (const std::string& term : query.pathTerms) texts.push_back(folded(term));
  return texts;
}

class Walk {
 public:
  Walk(const TokenQuery& asked, Metric shown, KindOf kinds, CancelCheck& check)
      : query(asked), metric(shown), kindOf(kinds), cancelCheck(check), terms(textsOf(asked)) {}

  /// False when cancelled.
  [[nodiscard]] bool run(DirNode& root, std::string_view rootPath) {
    if (cancelCheck.stopsAfter(0)) return false;
    std::vector<std::size_t> none(terms.size(), 0);
    states.resize(terms.size());
    const std::size_t missing = terms.advance(none, states, folded(root.path(rootPath)));
    levels.push_back({&root, 0, missing});
    if (!matchFiles()) return false;
    while (!levels.empty()) {
      Level& level = levels.back();
      if (level.nextChild == level.folder->subdirs.size()) {
        levels.pop_back();
        states.resize(levels.size() * terms.size());
        continue;
      }
      const auto& children = level.folder->subdirs;
      const std::size_t next = level.nextChild++;
      if (next + kAhead < children.size()) fetch(*children[next + kAhead]);
      if (next + 1 < children.size()) fetchContents(*children[next + 1]);
      if (!enter(*children[next])) return false;
    }
    return true;
  }

  std::vector<Match> matches;

 private:
  static constexpr std::size_t kAhead = 4;  // children fetched before they are entered

  struct Level {
    DirNode* folder;
    std::size_t nextChild;
    std::size_t missing;  // texts that the folder's path does not contain
  };

  // A search waits for memory most of its time, since nodes lie scattered: what it reads soon is brought into
  // the processor's cache while it examines others.

  /// What is read of every node: its name and where its children and files lie.
  static void fetch(const DirNode& node) {
    __builtin_prefetch(&node.name);
    __builtin_prefetch(&node.keptFiles);
  }
  /// What a node that was fetched before points to.
  static void fetchContents(const DirNode& node) {
    __builtin_prefetch(node.name.data());
    __builtin_prefetch(node.subdirs.data());
    __builtin_prefetch(node.keptFiles.data());
  }

  [[nodiscard]] bool enter(DirNode& folder) {
    if (cancelCheck.stopsAfter(1 + levels.back().missing)) return false;
    fetchContents(folder);
    if (query.kind && folder.subdirs.empty() && folder.keptFiles.empty()) return true;
    const std::size_t above = states.size() - terms.size();
    states.resize(states.size() + terms.size());
    const SearchTerms::States all(states);
    const auto from = all.subspan(above, terms.size());
    const auto to = all.subspan(above + terms.size());
    std::size_t missing = levels.back().missing;
    if (missing > 0) {
      missing = terms.advance(from, to, pieceOf(folder.name));
    } else {
      std::ranges::copy(from, to.begin());
    }
    levels.push_back({&folder, 0, missing});
    const std::size_t first = std::min(kAhead, folder.subdirs.size());
    for (std::size_t child = 0; child < first; ++child) fetch(*folder.subdirs[child]);
    const std::uint64_t size = metric == Metric::logical ? folder.totalLogical : folder.totalPhysical;
    if (!query.kind && missing == 0 && isWithinBounds(size, folder.mtime)) add(folder, nullptr, size);
    return matchFiles();
  }

  /// Of the folder on top.
  [[nodiscard]] bool matchFiles() {
    const Level& level = levels.back();
    const auto found = SearchTerms::ConstStates(states).last(terms.size());
    for (const FileEntry& file : level.folder->keptFiles) {
      if (cancelCheck.stopsAfter(1 + level.missing)) return false;
      const std::uint64_t size = metric == Metric::logical ? file.logical : file.physical;
      if (!isWithinBounds(size, file.mtime)) continue;
      if (level.missing > 0 && !terms.occurWith(found, pieceOf(file.name))) continue;
      if (query.kind && kindOf(*level.folder, file.name) != *query.kind) continue;
      add(*level.folder, &file, size);
    }
    return true;
  }

  [[nodiscard]] bool isWithinBounds(std::uint64_t size, std::int64_t mtime) const {
    return (!query.minSize || size >= *query.minSize) && (!query.maxSize || size <= *query.maxSize) &&
           (!query.olderThan || (mtime != 0 && mtime < *query.olderThan)) &&
           (!query.newerThan || mtime >= *query.newerThan);
  }

  void add(DirNode& folder, const FileEntry* file, std::uint64_t size) {
    matches.push_back({&folder, file, size, matches.size()});
  }

  /// What a name adds to its path, folded; valid until the next one.
  std::string_view pieceOf(std::string_view name) {
    piece.resize(1);
    appendFolded(piece, name);
    return piece;
  }

  const TokenQuery& query;
  const Metric metric;
  const KindOf kindOf;
  CancelCheck& cancelCheck;
  const SearchTerms terms;
  std::vector<Level> levels;
  std::vector<std::size_t> states;  // of each level, one after the other
  std::string piece = "/";
};

/// The `cap` largest to the front, in order, and away with the others.
void keepLargest(std::vector<Match>& matches, std::size_t cap) {
  const auto isBefore = [](const Match& a, const Match& b) {
    return a.size != b.size ? a.size > b.size : a.order < b.order;
  };
  if (matches.size() > cap) {
    std::ranges::nth_element(matches, matches.begin() + static_cast<std::ptrdiff_t>(cap), isBefore);
    matches.resize(cap);
  }
  std::ranges::sort(matches, isBefore);
}

}  // namespace

std::optional<SearchHits> search(const TokenQuery& query, const RefPtr<DirNode>& root,
                                 std::string_view rootPath, Metric metric, KindOf kindOf,
                                 FunctionRef<bool()> cancelled, std::size_t cap) {
  constexpr std::size_t kPathBytesOfARow = 256;
  CancelCheck cancelCheck(cancelled);
  Walk walk(query, metric, kindOf, cancelCheck);
  if (!walk.run(*root, rootPath)) return std::nullopt;
  SearchHits hits{.rows = {}, .found = walk.matches.size()};
  keepLargest(walk.matches, cap);
  hits.rows.reserve(walk.matches.size());
  for (const Match& match : walk.matches) {
    const RefPtr<DirNode> folder(match.folder);
    const std::string path = folder->path(rootPath);
    if (cancelCheck.stopsAfter(1 + path.size() / kPathBytesOfARow)) return std::nullopt;
    hits.rows.push_back(match.file == nullptr ? Entry::ofFolder(folder, path)
                                              : Entry::ofFile(*match.file, folder, path));
  }
  return hits;
}

}  // namespace quon
