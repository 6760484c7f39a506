#include "map/TopSlot.h"

#include "scan/MapSlots.h"

namespace quon {

std::optional<int> topSlot(const DirNode& folder, const DirNode& scope) {
  const DirNode* top = nullptr;
  for (const DirNode* at = &folder; at != &scope && at->parent != nullptr; at = at->parent) top = at;
  return top == nullptr ? std::nullopt : std::optional<int>(top->slotIndex);
}

int topSlot(const Entry& row, std::size_t position, const DirNode& scope) {
  const auto ofPosition = static_cast<int>(position % kMapSlots);
  if (const auto* folder = std::get_if<RefPtr<DirNode>>(&row.payload)) {
    return topSlot(**folder, scope).value_or(ofPosition);
  }
  const auto* file = std::get_if<Entry::File>(&row.payload);
  return file == nullptr ? 0 : topSlot(*file->container, scope).value_or(ofPosition);
}

}  // namespace quon
