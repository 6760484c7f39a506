#include "rows/SlotIndex.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace quon {

SlotIndex colourSlots(const DirNode& root) {
  std::vector<const DirNode*> largestFirst;
  largestFirst.reserve(root.subdirs.size());
  for (const RefPtr<DirNode>& child : root.subdirs) largestFirst.push_back(child.get());
  std::ranges::stable_sort(largestFirst, std::greater<>(), &DirNode::totalLogical);
  SlotIndex slots;
  slots.reserve(largestFirst.size());
  int next = 0;
  for (const DirNode* const folder : largestFirst) {
    slots.emplace(folder, next);
    next = (next + 1) % kColourSlots;
  }
  return slots;
}

}  // namespace quon
