#pragma once

#include <unordered_map>

#include "scan/DirNode.h"

namespace quon {

/// Colour slots by folder. A folder that has none here has the slot of the folder it lies in.
using SlotIndex = std::unordered_map<const DirNode*, int>;

/// Slots of the palette, 0 to 8.
inline constexpr int kColourSlots = 9;

/// Gives each folder directly below the root a slot: the nine largest, by logical size, have one each, the
/// others share them in turn. By the same size in both metrics, so that colours stay when the metric changes.
/// Threads: any that may read the tree.
[[nodiscard]] SlotIndex colourSlots(const DirNode& root);

}  // namespace quon
