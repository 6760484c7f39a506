#pragma once

#include <cstdint>
#include <string_view>

#include "scan/FileBatch.h"

namespace quon {

class DirNode;

/// Receives what a walk finds. Called from all walker threads at once; nodes stay alive until the walk's
/// owner frees the tree.
class ScanSink {
 public:
  virtual ~ScanSink() = default;

  /// Once per listed folder, after its direct figures are stored, with every counted file; with none when it
  /// could not be opened.
  virtual void record(const DirNode& node, FileBatch files) = 0;
  /// Once per sighting of a regular file with two or more links; `counted` for the first of its identifier.
  virtual void recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted);
};

inline void ScanSink::recordLink(std::uint64_t /*fileID*/, const DirNode& /*node*/, std::string_view /*name*/,
                                 bool /*counted*/) {}

}  // namespace quon
