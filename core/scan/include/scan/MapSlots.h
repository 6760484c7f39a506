#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace quon {

class DirNode;

/// How many colours the map has.
inline constexpr std::size_t kMapSlots = 12;

// Each folder has a slot among its siblings (DirNode::slotIndex). A scan or load ranks them by size; from
// then on a folder keeps its slot whatever its size becomes, so that no colour changes before someone's eyes.

/// Gives the child folders their rank by logical size, modulo the number of slots; equal ones in the tree's
/// order.
void rankSlots(DirNode& parent);

/// How many child folders of one parent have each slot.
class SlotUse {
 public:
  /// Counts the children whose parent this is.
  explicit SlotUse(const DirNode& parent);
  void add(std::uint8_t slot) { ++counts[slot]; }
  void remove(std::uint8_t slot) { --counts[slot]; }
  /// The lowest that no child has; when there is none, the lowest of those that fewest have.
  [[nodiscard]] std::uint8_t free() const;

 private:
  std::array<std::size_t, kMapSlots> counts{};
};

/// What was read again gets the slots of what it replaces: the folder itself, and those below that both have,
/// by path. Others get free ones.
void keepSlots(const DirNode& former, DirNode& replacement);

}  // namespace quon
