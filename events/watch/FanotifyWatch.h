#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <boost/unordered/unordered_flat_map.hpp>

#include "linux_fs/Descriptor.h"
#include "linux_fs/NameListing.h"
#include "watch/RootWatch.h"

struct fanotify_event_metadata;

namespace quon {

/// One mark on the whole file system of the root: no watch a folder, and nothing to place.
class FanotifyWatch final : public RootWatch {
 public:
  explicit FanotifyWatch(RootWatchSettings how);

  [[nodiscard]] int descriptor() const override { return group.get(); }
  [[nodiscard]] bool drain() override;
  void collect(FolderChanges& into) override;
  void mountChanged(const std::string& path) override;
  [[nodiscard]] const WatchProblems& problems() const override { return found; }
  void rootIsInPlace() override { found.rootMoved = false; }
  [[nodiscard]] std::vector<std::string> abandon() override;

  [[nodiscard]] std::optional<int> enter(int descriptor, int parentToken, std::string_view name,
                                         const InodeIdentity& identity) override;
  void refuse(int, std::string_view) override {}

 private:
  struct Change {
    bool moved = false;       ///< the folder itself
    bool gotFolder = false;   ///< a folder was made in it
    bool attributes = false;  ///< its own changed
  };

  /// With the user's own rights. `path` is the root's or below it.
  [[nodiscard]] Descriptor openAsUser(const Descriptor& rootFolder, const std::string& path) const;
  void gather(const fanotify_event_metadata& event, const char* record);
  /// The folder of a handle, by a path that the user may list; "" for none below the root.
  [[nodiscard]] std::string resolve(const Descriptor& rootFolder, const std::string& handle,
                                    bool& beyond) const;
  void reportNewFolders(const Descriptor& folder, const std::string& path, FolderChanges& into);

  const RootWatchSettings settings;
  Descriptor group;
  WatchProblems found;
  boost::unordered_flat_map<std::string, Change> changed;  // by file handle
  FolderChanges mounted;
  NameListing listing;
  std::int64_t gatheredSince;  // wall clock, microseconds: when `changed` was emptied last
};

}  // namespace quon
