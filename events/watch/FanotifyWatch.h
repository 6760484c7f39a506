#pragma once

#include <cstdint>
#include <set>
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

  [[nodiscard]] std::optional<int> enter(int descriptor, int parentToken, std::string_view name,
                                         const InodeIdentity& identity) override;
  void refuse(int, std::string_view) override {}
  void fail(std::error_code) override {}

 private:
  struct Change {
    bool moved = false;       ///< the folder itself
    bool gotFolder = false;   ///< a folder was made in it
    bool attributes = false;  ///< its own changed
  };

  /// Opens with the user's own rights, and remembers for the batch who may be listed.
  class UserView;

  void gather(const fanotify_event_metadata& event, const char* record);
  void report(const std::string& handle, const Change& change, UserView& user, FolderChanges& into);
  /// The path of a handle's folder; "" for one that is not below the root.
  [[nodiscard]] std::string resolve(const Descriptor& rootFolder, const std::string& handle,
                                    bool& beyond);
  void reportNewFolders(const Descriptor& folder, const std::string& path, FolderChanges& into);

  const RootWatchSettings settings;
  Descriptor group;
  WatchProblems found;
  boost::unordered_flat_map<std::string, Change> changed;  // by file handle
  FolderChanges mounted;
  std::set<std::string> closed;  // folders that the user may not list, with changes at or below them
  NameListing listing;
  std::int64_t gatheredSince;  // wall clock, microseconds: when `changed` was emptied last
};

}  // namespace quon
