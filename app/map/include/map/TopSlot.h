#pragma once

#include <cstddef>
#include <optional>

#include "rows/Entry.h"
#include "scan/DirNode.h"

namespace quon {

/// The colour slot of a folder as the map of a scope shows it: that of the scope's child which it is or lies
/// in. Outside the scope, which a search goes to, the tree's root takes the scope's place. None for the scope
/// and the root.
[[nodiscard]] std::optional<int> topSlot(const DirNode& folder, const DirNode& scope);
/// The same of a row that is the scope's at this position: there a file takes the position's slot. 0 for the
/// rest, whose colour is none of the slots'.
[[nodiscard]] int topSlot(const Entry& row, std::size_t position, const DirNode& scope);

}  // namespace quon
