#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "scan/FileEntry.h"

namespace quon {

/// Keeps the `capacity` files of largest logical size: a binary min-heap, so that the smallest kept file is
/// at index 0. On equal sizes the file already kept wins. Threads: confined to one.
class TopHeap {
 public:
  explicit TopHeap(std::int64_t mostItems) : capacity(mostItems) {}

  std::int64_t capacity;
  std::vector<TopFile> items;

  /// True when `offer` would keep a file of this size: spares building the path of one that is dropped.
  [[nodiscard]] bool wouldKeep(std::uint64_t logical) const;
  void offer(TopFile file);

 private:
  /// Not std::pop_heap: of files of one size it would keep others, as the order of the array differs.
  void siftDown(std::size_t index);
};

/// The items in their final order: largest logical size first, equal sizes in the order of the heap's array.
[[nodiscard]] std::vector<TopFile> sortedLargestFirst(std::vector<TopFile> items);

}  // namespace quon
