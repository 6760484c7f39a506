#include "map/MarksCache.h"

namespace quon {

const MarksCache::Marks& MarksCache::marks(const RefPtr<DirNode>& scope, const Stamp& current,
                                           FunctionRef<Marks()> compute) {
  if (current != stamp) {
    byScope.clear();
    order.clear();
    stamp = current;
  }
  std::erase(order, scope);
  if (order.size() == kScopes) {
    byScope.erase(order.front());
    order.erase(order.begin());
  }
  auto found = byScope.find(scope);
  if (found == byScope.end()) found = byScope.emplace(scope, compute()).first;
  order.push_back(scope);
  return found->second;
}

const MarksCache::Marks& cachedMarks(MarksCache& cache, const MapView& view, MapSize size,
                                     const Theme& theme) {
  const Stamp stamp{view.mode, view.scope.metric, view.version, size.w, size.h, theme.isDark};
  return cache.marks(view.scope.node, stamp, [&] {
    return view.mode == MapMode::sunburst ? sunburstMarks(view.scope, size, theme)
                                          : treemapMarks(view.scope, size, theme);
  });
}

}  // namespace quon
