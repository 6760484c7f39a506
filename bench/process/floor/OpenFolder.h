#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "shared/FileDescriptor.h"

namespace quon::bench {

/// A folder that has subfolders not opened yet, and the names of those. Only folders with subfolders become
/// one. Threads: `keep` only from the thread that lists it; the descriptor and the names are read by all;
/// whoever drops the last hold frees it, which closes the descriptor.
class OpenFolder {
 public:
  /// Takes the descriptor over; its number stays. The first hold belongs to the caller, which lists the
  /// folder.
  [[nodiscard]] static OpenFolder* take(FileDescriptor& folder) { return new OpenFolder(std::move(folder)); }

  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;

  [[nodiscard]] int descriptor() const { return opened.get(); }

  /// Takes over names of subfolders, each of which holds this folder from now on until it was opened.
  void keep(std::unique_ptr<char[]> chunk, std::uint32_t subfolders) {
    nameChunks.push_back(std::move(chunk));
    holds.fetch_add(subfolders, std::memory_order_relaxed);
  }

  void drop() {
    if (holds.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

 private:
  explicit OpenFolder(FileDescriptor&& folder) : opened(std::move(folder)) {}
  ~OpenFolder() = default;

  FileDescriptor opened;
  std::atomic<std::uint32_t> holds{1};
  std::vector<std::unique_ptr<char[]>> nameChunks;
};

}  // namespace quon::bench
