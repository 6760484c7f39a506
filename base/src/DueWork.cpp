#include "base/DueWork.h"

#include <algorithm>
#include <ratio>
#include <utility>

namespace quon {

DueWork::~DueWork() {
  // One by one, as what the work captured may post once more when it goes.
  while (!heap.empty()) {
    const WorkItem work = std::move(heap.back().work);
    heap.pop_back();
    work.cancel();
  }
}

bool DueWork::runsLater(const Entry& a, const Entry& b) {
  return a.due != b.due ? a.due > b.due : a.sequence > b.sequence;
}

void DueWork::add(std::chrono::nanoseconds due, WorkItem work) {
  heap.push_back({.due = due, .sequence = nextSequence++, .work = std::move(work)});
  std::ranges::push_heap(heap, runsLater);
}

std::optional<std::chrono::nanoseconds> DueWork::nextDue() const {
  if (heap.empty()) return std::nullopt;
  return heap.front().due;
}

std::optional<WorkItem> DueWork::takeDue(std::chrono::nanoseconds now) {
  if (heap.empty() || heap.front().due > now) return std::nullopt;
  std::ranges::pop_heap(heap, runsLater);
  WorkItem work = std::move(heap.back().work);
  heap.pop_back();
  return work;
}

std::size_t DueWork::pendingCount() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(heap, [](const Entry& entry) { return entry.work.isPending(); }));
}

std::chrono::nanoseconds DueWork::dueAfter(std::chrono::nanoseconds now,
                                           std::chrono::duration<double> delay) {
  using Years = std::chrono::duration<double, std::chrono::years::period>;
  if (!(delay.count() > 0)) return now;
  return now + std::chrono::round<std::chrono::nanoseconds>(
                   std::min<std::chrono::duration<double>>(delay, Years(100)));
}

}  // namespace quon
