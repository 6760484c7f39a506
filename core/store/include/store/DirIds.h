#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "base/RootPath.h"

namespace quon {

class DirNode;

/// The row id of every folder of a loaded index, found by the folder's full path. Paths are not kept: a
/// lookup goes down from the root by (parent, name), so that memory does not grow with the depth of the tree.
/// Refers to the nodes of the loaded tree: valid until that changes. Threads: confined to one.
class DirIds {
 public:
  explicit DirIds(RootPath root = {});
  ~DirIds();
  DirIds(DirIds&& other) noexcept;
  DirIds& operator=(DirIds&& other) noexcept;

  void reserve(std::size_t count);
  /// `parent` is the index that `add` returned for the parent's folder; ignored for the first, the root.
  /// Nullopt when the id is not larger than the one before, or the parent has a folder of that name already.
  [[nodiscard]] std::optional<std::uint32_t> add(std::int64_t id, std::uint32_t parent, DirNode& node);

  [[nodiscard]] std::optional<std::int64_t> find(std::string_view path) const;
  [[nodiscard]] std::size_t size() const;
  /// The folder with the row id, and its index as `add` returned it.
  [[nodiscard]] std::optional<std::uint32_t> indexOf(std::int64_t id) const;
  [[nodiscard]] DirNode& node(std::uint32_t index) const;

 private:
  struct Table;
  std::unique_ptr<Table> table;
};

}  // namespace quon
