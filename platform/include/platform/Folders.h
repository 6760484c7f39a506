#pragma once

#include <cstdint>
#include <string>

namespace quon {

/// Where the program keeps its own files, and the user's home. Absolute paths without trailing slash.
struct Folders {
  std::string home;
  std::string data;    ///< indexes and digests
  std::string config;  ///< user defaults
  std::string state;   ///< the event journal

  // Of other programs: their caches, settings and data.
  std::string cacheHome = {};
  std::string configHome = {};
  std::string dataHome = {};
  std::uint32_t userID = 0;

  /// What the program's widget reads.
  [[nodiscard]] std::string shared() const { return data + "/shared"; }
  /// One database a scanned root lies here.
  [[nodiscard]] std::string index() const { return data + "/index"; }
};

}  // namespace quon
