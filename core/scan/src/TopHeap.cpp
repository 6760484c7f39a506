#include "scan/TopHeap.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace quon {

bool TopHeap::wouldKeep(std::uint64_t logical) const {
  if (capacity < 1) return false;
  return items.size() < static_cast<std::size_t>(capacity) || items.front().logical < logical;
}

void TopHeap::offer(TopFile file) {
  if (!wouldKeep(file.logical)) return;
  if (items.size() < static_cast<std::size_t>(capacity)) {
    items.push_back(std::move(file));
    std::ranges::push_heap(items, std::ranges::greater(), &TopFile::logical);
  } else {
    items.front() = std::move(file);
    siftDown(0);
  }
}

void TopHeap::siftDown(std::size_t index) {
  while (true) {
    std::size_t smallest = index;
    for (const std::size_t child : {2 * index + 1, 2 * index + 2}) {
      if (child < items.size() && items[child].logical < items[smallest].logical) smallest = child;
    }
    if (smallest == index) return;
    std::swap(items[index], items[smallest]);
    index = smallest;
  }
}

std::vector<TopFile> sortedLargestFirst(std::vector<TopFile> items) {
  std::ranges::stable_sort(items, std::ranges::greater(), &TopFile::logical);
  return items;
}

}  // namespace quon
