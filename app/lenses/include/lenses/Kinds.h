#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/FunctionRef.h"
#include "base/RefPtr.h"
#include "lenses/FileKind.h"
#include "rows/Entry.h"
#include "scan/DirNode.h"

namespace quon {

/// Kinds that the files' contents showed, by full path. The kinds are those of Kinds, which outlive every map.
using KindOverrides = std::unordered_map<std::string, const FileKind*>;

/// Files by kind, as their names show it. Threads: any; `aggregate` reads the tree, which must not change
/// meanwhile.
namespace Kinds {

/// A kind with what files of it end in: lower case, without the dot. No ending belongs to two kinds.
struct Category {
  FileKind kind;
  std::unordered_set<std::string_view> extensions;
};

/// The nine kinds, in the order of their slots. Every other file is of the kind `other`.
[[nodiscard]] const std::vector<Category>& all();
/// Names, whole and in lower case, of files that are known without an ending.
[[nodiscard]] const std::unordered_map<std::string_view, const FileKind*>& namedFiles();
[[nodiscard]] const FileKind& other();

/// The kind of a file of this name (not a path): by what follows the last dot, unless that dot comes first;
/// else by the whole name. Letters' case is ignored. Allocates nothing for names in ASCII.
[[nodiscard]] const FileKind& of(std::string_view name);

/// One line of the lens.
struct Row {
  FileKind kind;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t count = 0;  ///< files

  friend bool operator==(const Row&, const Row&) = default;
};

struct Aggregate {
  std::vector<Row> rows;    ///< kinds that occur, largest first in the metric
  std::uint64_t small = 0;  ///< bytes, in the metric, of files too small to be kept in the tree

  friend bool operator==(const Aggregate&, const Aggregate&) = default;
};

/// The kept files of the folder's whole subtree by kind. An override counts only for files of no kind by name.
/// An overflow is fatal; kept files that outweigh their folder leave `small` at 0. `rootPath` as in
/// rows/FolderRows.h; nullopt when `cancelled` said so, as in rows/Cancellation.h.
[[nodiscard]] std::optional<Aggregate> aggregate(const RefPtr<DirNode>& scope, std::string_view rootPath,
                                                 Metric metric, const KindOverrides& overrides,
                                                 FunctionRef<bool()> cancelled);

}  // namespace Kinds

}  // namespace quon
