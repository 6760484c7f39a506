// The nine lists of endings are one table here, and the names another, both made by the compiler: no ending
// is in two lists, so one probe answers what nine would. A name is brought to lower case into two machine
// words. Only a name with bytes beyond ASCII is allocated on the heap, because case mappings lead
// from there back into ASCII (the Kelvin sign's lower case is k).

#include "lenses/Kinds.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>

#include "KindTables.h"
#include "NameTable.h"
#include "base/Checked.h"
#include "base/Path.h"
#include "base/Text.h"
#include "rows/Cancellation.h"

namespace quon::Kinds {
namespace {

using Extensions = NameTable<1024>;
using Names = NameTable<128>;

consteval Extensions extensionTable() {
  Extensions table;
  for (std::size_t at = 0; at < kCategories.size(); ++at) {
    forEachWord(kCategories[at].extensions,
                [&](std::string_view word) { table.put(word, static_cast<std::uint8_t>(at)); });
  }
  return table;
}

consteval Names nameTable() {
  Names table;
  for (const NamesText& named : kNamedFiles) {
    forEachWord(named.names,
                [&](std::string_view word) { table.put(word, static_cast<std::uint8_t>(named.category)); });
  }
  return table;
}

constexpr Extensions kExtensionTable = extensionTable();
constexpr Names kNameTable = nameTable();

/// A lower-case mapping takes at most three bytes to one.
constexpr std::size_t kMostThatShrink = ShortName::kMost * 3;

/// The table's value for a text in any case.
template <typename Table>
std::uint8_t findIn(const Table& table, std::string_view text) {
  std::optional<ShortName> name = ShortName::lowerCase(text);
  if (!name && text.size() <= kMostThatShrink &&
      std::ranges::any_of(text, [](char byte) { return static_cast<unsigned char>(byte) >= 0x80; })) {
    name = ShortName::lowerCase(lowerCase(text));
  }
  return name ? table.find(*name) : Table::kNone;
}

Row& rowOf(const FileKind& kind, std::vector<Row>& rows) {
  // A dozen rows at most: looking through them beats hashing.
  const auto found = std::ranges::find(rows, kind.id, [](const Row& row) { return row.kind.id; });
  return found != rows.end() ? *found : rows.emplace_back(Row{.kind = kind});
}

/// Of files in one folder, whose path is put together when the first of them is asked for.
class KindsInFolder {
 public:
  KindsInFolder(const DirNode& its, std::string_view root, const KindOverrides& known)
      : folder(its), rootPath(root), overrides(known) {}

  const FileKind& of(const FileEntry& file) {
    const FileKind& kind = Kinds::of(file.name);
    if (&kind != &kOther || overrides.empty()) return kind;
    if (path.empty()) path = folder.path(rootPath);
    const auto found = overrides.find(joinPath(path, file.name));
    return found == overrides.end() ? kind : *found->second;
  }

 private:
  const DirNode& folder;
  const std::string_view rootPath;
  const KindOverrides& overrides;
  std::string path;
};

}  // namespace

const std::vector<Category>& all() {
  static const std::vector<Category> kAll = [] {
    std::vector<Category> categories;
    for (const CategoryText& text : kCategories) {
      Category& category = categories.emplace_back(Category{.kind = text.kind, .extensions = {}});
      forEachWord(text.extensions, [&](std::string_view word) { category.extensions.insert(word); });
    }
    return categories;
  }();
  return kAll;
}

const std::unordered_map<std::string_view, const FileKind*>& namedFiles() {
  static const std::unordered_map<std::string_view, const FileKind*> kNamed = [] {
    std::unordered_map<std::string_view, const FileKind*> named;
    for (const NamesText& text : kNamedFiles) {
      forEachWord(text.names,
                  [&](std::string_view word) { named.emplace(word, &kCategories.at(text.category).kind); });
    }
    return named;
  }();
  return kNamed;
}

const FileKind& other() {
  return kOther;
}

const FileKind& of(std::string_view name) {
  std::uint8_t category = Extensions::kNone;
  const std::size_t dot = name.rfind('.');
  if (dot != std::string_view::npos && dot != 0) category = findIn(kExtensionTable, name.substr(dot + 1));
  if (category == Extensions::kNone) category = findIn(kNameTable, name);
  return category == Extensions::kNone ? kOther : kCategories[category].kind;
}

std::optional<Aggregate> aggregate(const RefPtr<DirNode>& scope, std::string_view rootPath, Metric metric,
                                   const KindOverrides& overrides, FunctionRef<bool()> cancelled) {
  Aggregate result;
  Cancellation cancellation(cancelled);
  std::uint64_t kept = 0;
  std::vector<const DirNode*> folders{scope.get()};
  while (!folders.empty()) {
    const DirNode* const folder = folders.back();
    folders.pop_back();
    if (cancellation.afterRows(1 + folder->keptFiles.size())) return std::nullopt;
    for (const RefPtr<DirNode>& child : folder->subdirs) folders.push_back(child.get());
    KindsInFolder kinds(*folder, rootPath, overrides);
    for (const FileEntry& file : folder->keptFiles) {
      Row& row = rowOf(kinds.of(file), result.rows);
      row.logical = checkedAdd(row.logical, file.logical);
      row.physical = checkedAdd(row.physical, file.physical);
      row.count = checkedAdd(row.count, std::int64_t{1});
      kept = checkedAdd(kept, metric == Metric::logical ? file.logical : file.physical);
    }
  }
  const auto sizeOf = [metric](const Row& row) {
    return metric == Metric::logical ? row.logical : row.physical;
  };
  std::ranges::stable_sort(result.rows, std::greater<>(), sizeOf);
  result.small = saturatingSub(metric == Metric::logical ? scope->totalLogical : scope->totalPhysical, kept);
  return result;
}

}  // namespace quon::Kinds
