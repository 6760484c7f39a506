#include "search/TreeSearch.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "Needles.h"
#include "base/Text.h"

// A name is the end of its path, so a term occurs in the name or the path exactly when it occurs in the path:
// terms and path terms are one set of needles. The walk keeps an explicit stack with the needles' states of
// each folder on it; below a folder whose path holds them all no name is looked at. Matches are pointers
// until the walk is over, and only the largest become rows: making, sorting and freeing a row for each of
// 112,000 matches took five times as long as finding them.

namespace quon {
namespace {

struct Match {
  DirNode* folder;        // that matches, or holds the file
  const FileEntry* file;  // none for a folder
  std::uint64_t size;
  std::size_t order;
};

/// Asks whether to go on, at once and then whenever as much work as 1,024 rows has been done.
class Patience {
 public:
  explicit Patience(FunctionRef<bool()> asked) : cancelled(asked) {}

  /// True when the work is to stop. `cost` counts rows looked at.
  [[nodiscard]] bool endsAfter(std::size_t cost) {
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

std::vector<std::string> needlesOf(const TokenQuery& query) {
  std::vector<std::string> texts = query.terms;
  texts.insert(texts.end(), query.pathTerms.begin(), query.pathTerms.end());
  return texts;
}

class Walk {
 public:
  Walk(const TokenQuery& asked, Metric shown, KindOf kinds, Patience& asker)
      : query(asked), metric(shown), kindOf(kinds), patience(asker), needles(needlesOf(asked)) {}

  /// False when cancelled.
  [[nodiscard]] bool run(DirNode& root, std::string_view rootPath) {
    if (patience.endsAfter(0)) return false;
    std::vector<std::size_t> none(needles.size(), 0);
    states.resize(needles.size());
    const std::size_t missing = needles.advance(none, states, lowerCase(root.path(rootPath)));
    levels.push_back({&root, 0, missing});
    if (!matchFiles()) return false;
    while (!levels.empty()) {
      Level& level = levels.back();
      if (level.nextChild == level.folder->subdirs.size()) {
        levels.pop_back();
        states.resize(levels.size() * needles.size());
        continue;
      }
      const auto& children = level.folder->subdirs;
      if (level.nextChild + kAhead < children.size()) fetch(*children[level.nextChild + kAhead]);
      if (!enter(*children[level.nextChild++])) return false;
    }
    return true;
  }

  std::vector<Match> matches;

 private:
  static constexpr std::size_t kAhead = 4;  // children fetched before they are entered

  struct Level {
    DirNode* folder;
    std::size_t nextChild;
    std::size_t missing;  // needles that the folder's path does not hold
  };

  /// Has the node brought into the processor's cache while others are looked at: a search waits for memory
  /// most of its time, since nodes lie scattered.
  static void fetch(const DirNode& node) {
    constexpr std::size_t kCacheLine = 64;
    const char* const bytes = reinterpret_cast<const char*>(&node);
    for (std::size_t at = 0; at < sizeof node; at += kCacheLine) __builtin_prefetch(bytes + at);
  }

  [[nodiscard]] bool enter(DirNode& folder) {
    if (patience.endsAfter(1 + levels.back().missing)) return false;
    if (query.kind && folder.subdirs.empty() && folder.keptFiles.empty()) return true;
    const std::size_t above = states.size() - needles.size();
    states.resize(states.size() + needles.size());
    const Needles::States all(states);
    const auto from = all.subspan(above, needles.size());
    const auto to = all.subspan(above + needles.size());
    std::size_t missing = levels.back().missing;
    if (missing > 0) {
      missing = needles.advance(from, to, pieceOf(folder.name));
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
    const auto found = Needles::ConstStates(states).last(needles.size());
    for (const FileEntry& file : level.folder->keptFiles) {
      if (patience.endsAfter(1 + level.missing)) return false;
      const std::uint64_t size = metric == Metric::logical ? file.logical : file.physical;
      if (!isWithinBounds(size, file.mtime)) continue;
      if (level.missing > 0 && !needles.areFoundWith(found, pieceOf(file.name))) continue;
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

  /// What a name adds to its path, in lower case; valid until the next one.
  std::string_view pieceOf(std::string_view name) {
    piece.resize(1 + name.size());
    unsigned char seen = 0;
    for (std::size_t at = 0; at < name.size(); ++at) {
      const auto byte = static_cast<unsigned char>(name[at]);
      const bool isUpper = byte >= 'A' && byte <= 'Z';
      piece[1 + at] = static_cast<char>(isUpper ? byte | 0x20 : byte);
      seen |= byte;
    }
    if (seen >= 0x80) piece.replace(1, std::string::npos, lowerCase(name));
    return piece;
  }

  const TokenQuery& query;
  const Metric metric;
  const KindOf kindOf;
  Patience& patience;
  const Needles needles;
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
  Patience patience(cancelled);
  Walk walk(query, metric, kindOf, patience);
  if (!walk.run(*root, rootPath)) return std::nullopt;
  SearchHits hits{.rows = {}, .found = walk.matches.size()};
  keepLargest(walk.matches, cap);
  hits.rows.reserve(walk.matches.size());
  for (const Match& match : walk.matches) {
    const RefPtr<DirNode> folder(match.folder);
    const std::string path = folder->path(rootPath);
    if (patience.endsAfter(1 + path.size() / kPathBytesOfARow)) return std::nullopt;
    hits.rows.push_back(match.file == nullptr ? Entry::ofFolder(folder, path)
                                              : Entry::ofFile(*match.file, folder, path));
  }
  return hits;
}

}  // namespace quon
