#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "shared/FileDescriptor.h"

namespace quon::bench {

/// A folder that has subfolders not opened yet, and the names of those. Only folders with subfolders become
/// one. Threads: `keep` only from the thread that lists it; the descriptor and the names are read by all;
/// the last reference frees it, which closes the descriptor.
class OpenDirectory {
 public:
  /// Takes the descriptor over; its number stays. The first reference is the caller's, which lists the
  /// folder.
  [[nodiscard]] static OpenDirectory* take(FileDescriptor& folder) {
    return new OpenDirectory(std::move(folder));
  }

  OpenDirectory(const OpenDirectory&) = delete;
  OpenDirectory& operator=(const OpenDirectory&) = delete;

  [[nodiscard]] int descriptor() const { return opened.get(); }

  /// Takes over names of subfolders, each of which has a reference to this folder until it was opened.
  void keep(std::unique_ptr<char[]> chunk, std::uint32_t subfolders) {
    nameChunks.push_back(std::move(chunk));
    references.fetch_add(subfolders, std::memory_order_relaxed);
  }

  void release() {
    if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 private:
  explicit OpenDirectory(FileDescriptor&& folder) : opened(std::move(folder)) {}
  ~OpenDirectory() = default;

  FileDescriptor opened;
  std::atomic<std::uint32_t> references{1};
  std::vector<std::unique_ptr<char[]>> nameChunks;
};

}  // namespace quon::bench
