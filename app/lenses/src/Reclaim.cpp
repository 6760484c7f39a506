// One walk in the tree's order, over a stack of its own because chains of 100,000 folders are ordinary. A
// folder that matches is noted and not entered. What was found is grouped afterwards.

#include "lenses/Reclaim.h"

#include <algorithm>
#include <utility>

#include "DesktopRules.h"
#include "NamedRules.h"
#include "base/Checked.h"
#include "base/Path.h"
#include "rows/Cancellation.h"

namespace quon::Reclaim {
namespace {

struct Found {
  const Rule* rule;
  DirNode* node;
};

const Rule* matchByName(std::string_view parent, std::string_view name) {
  const auto* const rule = std::ranges::find_if(kNamedRules, [&](const Rule& tried) {
    return tried.match == name && (!tried.parent || *tried.parent == parent);
  });
  return rule == kNamedRules.end() ? nullptr : rule;
}

/// The rules by name alone.
struct NoPlaces {
  static void enter(std::string_view /*name*/) {}
  static void leave(std::string_view /*name*/) {}
  static const Rule* match(const DirNode& /*child*/) { return nullptr; }
  static bool mayBeListed(std::string_view /*name*/) { return true; }
};

/// None when it was cancelled.
template <typename Places>
std::optional<std::vector<Found>> walk(DirNode& scope, Places places, FunctionRef<bool()> cancelled) {
  struct Visit {
    DirNode* folder;
    std::size_t nextChild = 0;
  };
  std::vector<Found> found;
  Cancellation cancellation(cancelled);
  std::vector<Visit> visits{{&scope}};
  while (!visits.empty()) {
    if (cancellation.afterRows()) return std::nullopt;
    auto& [folder, nextChild] = visits.back();
    if (nextChild == folder->subdirs.size()) {
      if (visits.size() > 1) places.leave(folder->name);
      visits.pop_back();
      continue;
    }
    DirNode* const child = folder->subdirs[nextChild++].get();
    // The root is named with its whole path; no other name contains a slash.
    const Rule* rule = matchByName(lastComponent(folder->name), child->name);
    if (rule == nullptr) rule = places.match(*child);
    if (rule != nullptr && places.mayBeListed(child->name)) {
      found.push_back({rule, child});
    } else {
      places.enter(child->name);
      visits.push_back({child});
    }
  }
  return found;
}

/// The groups of what was found, those of equal total in the order of the rules.
std::vector<Group> grouped(const std::vector<Found>& found, const std::vector<const Rule*>& allRules,
                           Metric metric) {
  const auto sizeOf = [metric](const RefPtr<DirNode>& node) {
    return metric == Metric::logical ? node->totalLogical : node->totalPhysical;
  };
  std::vector<Group> all;
  const auto groupOf = [&all](std::string_view label) {
    return std::ranges::find(all, label, [](const Group& group) { return group.rule.label; });
  };
  for (const Rule* const rule : allRules) {
    if (groupOf(rule->label) == all.end()) all.push_back({.rule = *rule, .nodes = {}});
  }
  for (const Found& match : found) {
    Group& group = *groupOf(match.rule->label);
    group.nodes.emplace_back(match.node);
    group.total = checkedAdd(group.total, sizeOf(group.nodes.back()));
  }
  std::erase_if(all, [](const Group& group) { return group.nodes.empty(); });
  for (Group& group : all) std::ranges::stable_sort(group.nodes, std::greater<>(), sizeOf);
  std::ranges::stable_sort(all, std::greater<>(), &Group::total);
  return all;
}

std::vector<const Rule*> namedRules() {
  std::vector<const Rule*> all;
  all.reserve(kNamedRules.size());
  for (const Rule& rule : kNamedRules) all.push_back(&rule);
  return all;
}

}  // namespace

std::span<const Rule> rules() {
  return kNamedRules;
}

std::vector<Group> groups(const RefPtr<DirNode>& scope, Metric metric) {
  return grouped(*walk(*scope, NoPlaces(), [] { return false; }), namedRules(), metric);
}

std::optional<std::vector<Group>> groups(const RefPtr<DirNode>& scope, Metric metric,
                                         const Surroundings& surroundings, const MarkerFiles& markers,
                                         FunctionRef<bool()> cancelled) {
  std::vector<const Rule*> all = namedRules();
  const std::vector<const Rule*> desktop = DesktopRules::all();
  all.insert(all.end(), desktop.begin(), desktop.end());
  DesktopRules places(scope->path(surroundings.rootPath), surroundings, markers);
  const auto found = walk(*scope, std::move(places), cancelled);
  if (!found) return std::nullopt;
  return grouped(*found, all, metric);
}

}  // namespace quon::Reclaim
