#include "scan/MapSlots.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/container/small_vector.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include "scan/DirNode.h"

namespace quon {
namespace {

/// Finds children by name. They mostly come in the same order again, and then no table of them is made.
class FormerChildren {
 public:
  explicit FormerChildren(const DirNode& parent) : children(parent.subdirs) {}

  const DirNode* named(std::string_view name) {
    if (next < children.size() && children[next]->name == name) return children[next++].get();
    if (byName.empty()) {
      byName.reserve(children.size());
      for (std::size_t at = 0; at < children.size(); ++at) byName.emplace(children[at]->name, at);
    }
    const auto found = byName.find(name);
    if (found == byName.end()) return nullptr;
    next = found->second + 1;
    return children[found->second].get();
  }

 private:
  const std::vector<RefPtr<DirNode>>& children;
  std::size_t next = 0;
  boost::unordered_flat_map<std::string_view, std::size_t> byName;
};

/// Those that both have keep their slots, and only then do the others get what is left.
void keepSlotsOfChildren(const DirNode& former, DirNode& replacement,
                         std::vector<std::pair<const DirNode*, DirNode*>>& below) {
  FormerChildren formerChildren(former);
  std::vector<DirNode*> others;
  for (const RefPtr<DirNode>& child : replacement.subdirs) {
    const DirNode* const same = formerChildren.named(child->name);
    if (same == nullptr) {
      others.push_back(child.get());
    } else {
      child->slotIndex = same->slotIndex;
      below.emplace_back(same, child.get());
    }
  }
  if (others.empty()) return;
  SlotUse use(replacement);
  for (const DirNode* const child : others) use.remove(child->slotIndex);
  for (DirNode* const child : others) {
    child->slotIndex = use.free();
    use.add(child->slotIndex);
  }
}

}  // namespace

void rankSlots(DirNode& parent) {
  struct Child {
    std::uint64_t size;
    std::size_t order;
  };
  constexpr std::size_t kUsual = 64;  // most folders have fewer, and then nothing is allocated
  boost::container::small_vector<Child, kUsual> largestFirst;
  largestFirst.reserve(parent.subdirs.size());
  for (const RefPtr<DirNode>& child : parent.subdirs) {
    largestFirst.push_back({child->totalLogical, largestFirst.size()});
  }
  std::ranges::sort(largestFirst, [](const Child& a, const Child& b) {
    return a.size != b.size ? a.size > b.size : a.order < b.order;
  });
  for (std::size_t rank = 0; rank < largestFirst.size(); ++rank) {
    parent.subdirs[largestFirst[rank].order]->slotIndex = static_cast<std::uint8_t>(rank % kMapSlots);
  }
}

SlotUse::SlotUse(const DirNode& parent) {
  for (const RefPtr<DirNode>& child : parent.subdirs) {
    if (child->parent == &parent) add(child->slotIndex);
  }
}

std::uint8_t SlotUse::free() const {
  return static_cast<std::uint8_t>(std::ranges::min_element(counts) - counts.begin());
}

void keepSlots(const DirNode& former, DirNode& replacement) {
  replacement.slotIndex = former.slotIndex;
  std::vector<std::pair<const DirNode*, DirNode*>> below{{&former, &replacement}};
  while (!below.empty()) {
    const auto [earlier, later] = below.back();
    below.pop_back();
    keepSlotsOfChildren(*earlier, *later, below);
  }
}

}  // namespace quon
