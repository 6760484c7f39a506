#include "OpenParents.h"

#include <algorithm>

namespace quon {
namespace {

/// More would not make a walk faster.
constexpr std::size_t kMost = 512;

}  // namespace

OpenParents::OpenParents(std::size_t openFileLimit)
    : most(static_cast<std::int64_t>(std::min(openFileLimit / 2, kMost))) {}

OpenDirectoryRef OpenParents::keep(const OpenDirectoryRef& directory) {
  if (open.load(std::memory_order_relaxed) >= most.load(std::memory_order_relaxed)) return nullptr;
  open.fetch_add(1, std::memory_order_relaxed);
  return {directory.get(),
          [directory, this](OpenDirectory*) { open.fetch_sub(1, std::memory_order_relaxed); }};
}

void OpenParents::keepFewer() {
  most.store(most.load(std::memory_order_relaxed) / 2, std::memory_order_relaxed);
}

}  // namespace quon
