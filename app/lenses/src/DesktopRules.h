#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "MarkedPaths.h"
#include "lenses/MarkerFiles.h"
#include "lenses/Reclaim.h"

namespace quon::Reclaim {

/// The rules of a Linux desktop, which go by places and by marker files, along a walk of the tree. Marker
/// files are read only for folders that the walk comes to and that could match.
class DesktopRules {
 public:
  /// For a walk that starts in the folder of this path.
  DesktopRules(std::string scopePath, const Surroundings& where, const MarkerFiles& markerFiles);

  /// Goes into a child of the current folder.
  void enter(std::string_view name);
  /// Goes back to the parent.
  void leave(std::string_view name);
  /// The rule that a child of the current folder matches, or none; it may contain something of the user's
  /// own.
  [[nodiscard]] const Rule* match(const DirNode& child) const;

  /// False for a child that is or contains something of the user's own, whatever rule it matches.
  [[nodiscard]] bool mayBeListed(std::string_view name) const;

  /// All of them, in the order of their groups.
  [[nodiscard]] static std::vector<const Rule*> all();

 private:
  void markPlaces(const Surroundings& where);
  /// How many levels the current folder lies below this one; 0 when it does not.
  [[nodiscard]] std::size_t depthBelow(const std::string& folder) const;
  [[nodiscard]] bool isBrowserCache(std::string_view name) const;
  [[nodiscard]] bool isRustTarget(const std::string& folder, bool carriesTag) const;
  [[nodiscard]] bool carriesTag(const std::string& folder) const;

  const MarkerFiles& markers;
  std::string path;                        // of the current folder
  std::vector<MarkedPaths::Place> places;  // of the current folder, last, and those above it up to the scope
  MarkedPaths marked;
  std::string flatpaks;            // the folder of sandboxed applications, "" without a home
  std::string snaps;               // likewise
  std::string configHome;          // "" when there is none
  std::vector<std::string> stays;  // no folder that is or contains one of these is ever listed
};

}  // namespace quon::Reclaim
