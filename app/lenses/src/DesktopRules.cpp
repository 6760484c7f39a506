// Three sorts of evidence. Places: absolute paths made from the surroundings, marked before the walk. Tags:
// the tree says which folders contain a CACHEDIR.TAG, but not what it says; it is read when the walk comes to
// the folder, which it does not inside one that matched before, and its signature decides. Names: a
// folder called `target`, and below the configuration folder one named as browsers name their caches, is
// read when the walk comes to it.
//
// Whatever the evidence, its name included, a folder that is or contains the home, data or configuration
// folder or a mounted volume is never listed: an environment variable may be set to anything, a tag may have
// been put where a backup should stop, and what is mounted in a cache is no cache.

#include "DesktopRules.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "PlacedRules.h"
#include "base/Path.h"

namespace quon::Reclaim {
namespace {

/// What a file of the tag's name has to begin with to be one.
constexpr std::string_view kSignature = "Signature: 8a477f597d28d172789f06886806bc55";
static_assert(kSignature.size() == 43);

/// A longer path cannot be opened, so nothing can be proved of it.
constexpr std::size_t kLongestPath = 4095;

bool isUsable(std::string_view folder) {
  return folder.starts_with('/');
}

/// An environment variable's folder, or the default below home where it is unset or is to be ignored.
std::string folderOr(const std::string& set, const std::string& home, std::string_view standard) {
  if (isUsable(set)) return withoutTrailingSlashes(set);
  return isUsable(home) ? joinPath(pathPrefix(home), standard) : "";
}

}  // namespace

DesktopRules::DesktopRules(std::string scopePath, const Surroundings& where, const MarkerFiles& markerFiles)
    : markers(markerFiles), path(std::move(scopePath)) {
  markPlaces(where);
  places.push_back(marked.placeOf(path));
}

void DesktopRules::markPlaces(const Surroundings& where) {
  const std::string home = withoutTrailingSlashes(where.home);
  const std::string cacheHome = folderOr(where.cacheHome, home, ".cache");
  const std::string dataHome = folderOr(where.dataHome, home, ".local/share");
  configHome = folderOr(where.configHome, home, ".config");
  if (isUsable(home)) {
    flatpaks = joinPath(pathPrefix(home), ".var/app");
    snaps = joinPath(pathPrefix(home), "snap");
    stays = {home};
  }
  if (isUsable(configHome)) stays.push_back(configHome);
  if (isUsable(dataHome)) stays.push_back(dataHome);
  stays.insert(stays.end(), where.mountPoints.begin(), where.mountPoints.end());

  const auto mark = [this](std::string_view anchor, std::string_view below, const Rule& rule) {
    if (!isUsable(anchor)) return;
    marked.mark(below.empty() ? std::string(anchor) : joinPath(pathPrefix(anchor), below), rule);
  };
  for (const PlacedRule& placed : kPlacedRules) {
    switch (placed.anchor) {
      case Anchor::home:
        mark(home, placed.path, placed.rule);
        break;
      case Anchor::cacheHome:
        mark(cacheHome, placed.path, placed.rule);
        break;
      case Anchor::dataHome:
        mark(dataHome, placed.path, placed.rule);
        break;
      case Anchor::mountPoint:
        for (const std::string& mountPoint : where.mountPoints)
          mark(mountPoint, fmt::format("{}{}", placed.path, where.userID), placed.rule);
        break;
      case Anchor::compilerCache:
        for (const char digit : std::string_view("0123456789abcdef"))
          mark(home, fmt::format(".ccache/{}", digit), placed.rule);
        break;
    }
  }
}

void DesktopRules::enter(std::string_view name) {
  places.push_back(marked.below(places.back(), name));
  path += '/';
  path += name;
}

void DesktopRules::leave(std::string_view name) {
  places.pop_back();
  path.resize(path.size() - name.size() - 1);
}

bool DesktopRules::mayBeListed(std::string_view name) const {
  const std::string folder = joinPath(path, name);
  return std::ranges::none_of(stays, [&](const std::string& kept) { return isInside(kept, folder); });
}

const Rule* DesktopRules::match(const DirNode& child) const {
  const std::string_view name = child.name;
  if (const Rule* const rule = marked.rule(marked.below(places.back(), name))) return rule;
  if (name == kFlatpakCache.match && depthBelow(flatpaks) == 1) return &kFlatpakCache;
  if (name == kSnapCache.match && depthBelow(snaps) == 2) return &kSnapCache;
  if (isBrowserCache(name)) return &kBrowserCache;
  const bool perhapsTarget = name == kRustTarget.match;
  if ((!child.cacheTagged && !perhapsTarget) || path.size() + name.size() >= kLongestPath) return nullptr;
  const std::string folder = joinPath(path, name);
  const bool tagged = child.cacheTagged && carriesTag(folder);
  if (perhapsTarget && isRustTarget(folder, tagged)) return &kRustTarget;
  return tagged ? &kTagged : nullptr;
}

std::size_t DesktopRules::depthBelow(const std::string& folder) const {
  if (folder.empty()) return 0;
  const auto below = relativeTo(path, folder);
  if (!below || below->empty()) return 0;
  return 1 + static_cast<std::size_t>(std::ranges::count(*below, '/'));
}

/// By the index that each of their caches has, beside the first of its block files, in a folder of its own or
/// in one for each sort of content.
bool DesktopRules::isBrowserCache(std::string_view name) const {
  constexpr std::string_view kNames[]{"Cache",         "Code Cache",      "GPUCache",    "DawnCache",
                                      "GrShaderCache", "DawnWebGPUCache", "ShaderCache", "DawnGraphiteCache"};
  if (std::ranges::find(kNames, name) == std::end(kNames) || depthBelow(configHome) == 0) return false;
  if (path.size() + name.size() + 20 >= kLongestPath) return false;
  const std::string folder = joinPath(path, name);
  if (name == "Cache" && markers.contains(joinPath(folder, "Cache_Data"), "index")) return true;
  if (name == "Code Cache") return markers.contains(joinPath(folder, "js"), "index");
  return markers.contains(folder, "index") && markers.contains(folder, "data_0");
}

/// A workspace may have a member called `target` and build elsewhere, so Cargo's own trace is required too,
/// and a folder that is itself a package is source.
bool DesktopRules::isRustTarget(const std::string& folder, bool carriesTag) const {
  return markers.contains(path, "Cargo.toml") &&
         (carriesTag || markers.contains(folder, ".rustc_info.json")) &&
         !markers.contains(folder, "Cargo.toml");
}

bool DesktopRules::carriesTag(const std::string& folder) const {
  return markers.beginning(folder, DirNode::kCacheTag, kSignature.size()) == kSignature;
}

std::vector<const Rule*> DesktopRules::all() {
  std::vector<const Rule*> rules;
  rules.reserve(kPlacedRules.size() + 5);
  for (const PlacedRule& placed : kPlacedRules) rules.push_back(&placed.rule);
  for (const Rule* const rule : {&kFlatpakCache, &kSnapCache, &kBrowserCache, &kRustTarget, &kTagged}) {
    rules.push_back(rule);
  }
  return rules;
}

}  // namespace quon::Reclaim
