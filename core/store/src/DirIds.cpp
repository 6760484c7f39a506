#include "store/DirIds.h"

#include <algorithm>
#include <functional>
#include <vector>

#include <boost/unordered/unordered_flat_set.hpp>

#include "base/Path.h"
#include "scan/DirNode.h"

namespace quon {
namespace {

struct Row {
  std::int64_t id;
  DirNode* node;
  std::uint32_t parent;
};

/// What finds a folder: its parent and its name.
struct Step {
  std::uint32_t parent;
  std::string_view name;
};

}  // namespace

struct DirIds::Table {
  // The set contains indexes into `rows`; hash and equality use the row behind them.
  struct Hash {
    using is_transparent = void;
    const std::vector<Row>* rows;
    std::size_t operator()(const Step& step) const {
      return std::hash<std::string_view>()(step.name) ^ (step.parent * 0x9E3779B97F4A7C15ULL);
    }
    std::size_t operator()(std::uint32_t index) const {
      return (*this)(Step{(*rows)[index].parent, (*rows)[index].node->name});
    }
  };
  struct Equal {
    using is_transparent = void;
    const std::vector<Row>* rows;
    bool operator()(std::uint32_t a, std::uint32_t b) const {
      return (*this)(Step{(*rows)[a].parent, (*rows)[a].node->name}, b);
    }
    bool operator()(const Step& step, std::uint32_t index) const {
      return (*rows)[index].parent == step.parent && (*rows)[index].node->name == step.name;
    }
    bool operator()(std::uint32_t index, const Step& step) const { return (*this)(step, index); }
  };

  RootPath root;
  std::vector<Row> rows;  // by ascending id
  boost::unordered_flat_set<std::uint32_t, Hash, Equal> byName{0, Hash{&rows}, Equal{&rows}};
};

DirIds::DirIds(RootPath root) : table(std::make_unique<Table>()) {
  table->root = std::move(root);
}
DirIds::~DirIds() = default;
DirIds::DirIds(DirIds&& other) noexcept = default;
DirIds& DirIds::operator=(DirIds&& other) noexcept = default;

void DirIds::reserve(std::size_t count) {
  table->rows.reserve(count);
  table->byName.reserve(count);
}

std::optional<std::uint32_t> DirIds::add(std::int64_t id, std::uint32_t parent, DirNode& node) {
  const auto index = static_cast<std::uint32_t>(table->rows.size());
  if (index != 0 && table->rows.back().id >= id) return std::nullopt;
  table->rows.push_back({id, &node, parent});
  if (index == 0 || table->byName.insert(index).second) return index;
  table->rows.pop_back();
  return std::nullopt;
}

std::optional<std::int64_t> DirIds::find(std::string_view path) const {
  const std::optional<std::string_view> below = table->root.relative(path);
  if (!below || table->rows.empty()) return std::nullopt;
  std::uint32_t at = 0;
  std::string_view rest = *below;
  for (std::string_view name = takeComponent(rest); !name.empty(); name = takeComponent(rest)) {
    const auto found = table->byName.find(Step{at, name});
    if (found == table->byName.end()) return std::nullopt;
    at = *found;
  }
  return table->rows[at].id;
}

std::size_t DirIds::size() const {
  return table->rows.size();
}

std::optional<std::uint32_t> DirIds::indexOf(std::int64_t id) const {
  const std::vector<Row>& rows = table->rows;
  // A freshly written index numbers its folders from 1 without a gap.
  const auto guess = static_cast<std::uint64_t>(id) - 1;
  if (guess < rows.size() && rows[guess].id == id) return static_cast<std::uint32_t>(guess);
  const auto at = std::ranges::lower_bound(rows, id, {}, &Row::id);
  if (at == rows.end() || at->id != id) return std::nullopt;
  return static_cast<std::uint32_t>(at - rows.begin());
}

DirNode& DirIds::node(std::uint32_t index) const {
  return *table->rows[index].node;
}

}  // namespace quon
