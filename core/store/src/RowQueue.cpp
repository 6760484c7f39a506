#include "RowQueue.h"

#include <utility>

namespace quon {
namespace {

constexpr std::size_t kMostQueued = 32768;
/// The bound by size, for trees of few folders with very many files or links each.
/// Small, too, so that little is left to write when the walk ends and only one processor has work.
constexpr std::size_t kMostQueuedBytes = std::size_t{4} * 1024 * 1024;
/// The writer is woken for so many folders at a time: waking it for each costs more than writing it.
constexpr std::size_t kWakeAt = 256;
constexpr std::size_t kWakeAtBytes = std::size_t{512} * 1024;

}  // namespace

void RowQueue::push(FolderRows folder) {
  const MutexLock held(lock);
  if (!waitForRoom()) return;
  queuedBytes += folder.files.bytes();
  queued.folders.push_back(std::move(folder));
  if (queued.folders.size() % kWakeAt == 0 || queuedBytes >= kWakeAtBytes) changed.broadcast();
}

void RowQueue::push(LinkRow link) {
  const MutexLock held(lock);
  if (!waitForRoom()) return;
  queuedBytes += sizeof link + link.name.size();
  queued.links.push_back(std::move(link));
  if (queuedBytes >= kWakeAtBytes) changed.broadcast();
}

/// False when the queue is closed.
bool RowQueue::waitForRoom() {
  while (!closed && (queued.folders.size() >= kMostQueued || queuedBytes >= kMostQueuedBytes)) {
    changed.wait(lock);
  }
  return !closed;
}

bool RowQueue::take(QueuedRows& taken) {
  taken.folders.clear();
  taken.links.clear();
  const MutexLock held(lock);
  while (!closed && queued.folders.size() < kWakeAt && queuedBytes < kWakeAtBytes) changed.wait(lock);
  taken.folders.swap(queued.folders);
  taken.links.swap(queued.links);
  queuedBytes = 0;
  changed.broadcast();
  return !closed || !taken.folders.empty() || !taken.links.empty();
}

void RowQueue::close() {
  const MutexLock held(lock);
  closed = true;
  changed.broadcast();
}

}  // namespace quon
