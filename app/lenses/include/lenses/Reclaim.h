#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/FunctionRef.h"
#include "base/RefPtr.h"
#include "rows/Entry.h"
#include "scan/DirNode.h"

namespace quon {

class MarkerFiles;

/// Folders whose contents programs make again: packages, build products, caches. A folder that is listed
/// is taken whole, so none lies in another and nothing is counted twice. Nothing is listed on a guess: the
/// user may delete what is.
///
/// Threads: any that may read the tree, which must not change meanwhile.
namespace Reclaim {

/// What a folder is recognised by. The texts live as long as the program.
struct Rule {
  std::string_view match;                  ///< the folder's name, byte for byte
  std::optional<std::string_view> parent;  ///< its parent's name, where that matters
  std::string_view label;                  ///< the group's title; rules of one label share a group
  std::string_view why;                    ///< how the contents are made again

  friend bool operator==(const Rule&, const Rule&) = default;
};

struct Group {
  Rule rule;                           ///< the first of this label
  std::vector<RefPtr<DirNode>> nodes;  ///< largest first in the metric
  std::uint64_t total = 0;             ///< bytes, in the metric

  friend bool operator==(const Group&, const Group&) = default;
};

/// The rules by name, in the order in which they are tried.
[[nodiscard]] std::span<const Rule> rules();

/// The folders below `scope`, itself excluded, that `rules` recognise; largest total first.
[[nodiscard]] std::vector<Group> groups(const RefPtr<DirNode>& scope, Metric metric);

/// Where things lie on this desktop. Paths are absolute and canonical, as the tree's are; others find
/// nothing.
struct Surroundings {
  std::string rootPath;    ///< of the tree's root, "" for the file system's
  std::string home;        ///< "" when there is none
  std::string cacheHome;   ///< $XDG_CACHE_HOME; "" or a relative path for ~/.cache
  std::string configHome;  ///< $XDG_CONFIG_HOME; the same for ~/.config
  std::string dataHome;    ///< $XDG_DATA_HOME; the same for ~/.local/share
  std::vector<std::string> mountPoints;
  std::uint32_t userID = 0;
};

/// The same, and what else a Linux desktop regenerates where no rule by name matches: folders at places that
/// are known to contain caches, packages or trash; a Rust project's build products; the caches of browsers
/// among the settings; folders that carry a verified CACHEDIR.TAG. The latter three are proved by their
/// marker files, each read only when the walk comes to its folder. No folder that is listed, for whatever
/// rule, is or contains the home folder, the configuration or the data home or a mount point. Nullopt when
/// `cancelled` returned true: see rows/Cancellation.h.
[[nodiscard]] std::optional<std::vector<Group>> groups(const RefPtr<DirNode>& scope, Metric metric,
                                                       const Surroundings& surroundings,
                                                       const MarkerFiles& markers,
                                                       FunctionRef<bool()> cancelled);

}  // namespace Reclaim

}  // namespace quon

template <>
struct std::hash<quon::Reclaim::Rule> {
  [[nodiscard]] std::size_t operator()(const quon::Reclaim::Rule& rule) const noexcept {
    const std::hash<std::string_view> ofText;
    std::size_t mixed = std::hash<std::optional<std::string_view>>()(rule.parent);
    for (const std::string_view text : {rule.match, rule.label, rule.why}) mixed = mixed * 31 + ofText(text);
    return mixed;
  }
};
