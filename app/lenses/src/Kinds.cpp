// The nine lists of endings are one table here, and the names another, both made by the compiler: no ending
// is in two lists, so one probe answers what nine would. A name is brought to lower case into two machine
// words. Only a name with bytes beyond ASCII is allocated on the heap, because case mappings lead
// from there back into ASCII (the Kelvin sign's lower case is k).

#include "lenses/Kinds.h"

#include <algorithm>
#include <functional>
#include <optional>

#include "KindTables.h"
#include "NameTable.h"
#include "base/Checked.h"
#include "base/Text.h"

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

const FileKind& kindOf(const FileEntry& file, const KindOverrides::mapped_type* sniffed) {
  const FileKind& kind = of(file.name);
  if (sniffed == nullptr || &kind != &kOther) return kind;
  const auto found = sniffed->find(file.name);
  return found == sniffed->end() ? kind : *found->second;
}

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

Aggregate aggregate(const RefPtr<DirNode>& scope, Metric metric, const KindOverrides& overrides) {
  Aggregate result;
  std::uint64_t kept = 0;
  std::vector<const DirNode*> folders{scope.get()};
  while (!folders.empty()) {
    const DirNode* const folder = folders.back();
    folders.pop_back();
    for (const RefPtr<DirNode>& child : folder->subdirs) folders.push_back(child.get());
    if (folder->keptFiles.empty()) continue;
    const auto sniffed = overrides.find(folder);
    for (const FileEntry& file : folder->keptFiles) {
      Row& row = rowOf(kindOf(file, sniffed == overrides.end() ? nullptr : &sniffed->second), result.rows);
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
