#include <algorithm>

#include "base/Path.h"
#include "live/Refresh.h"
#include "platform/Events.h"

namespace quon::Refresh {

void addChange(Changes& changes, const FolderEvent& event, const RootPath& root,
               const std::set<std::string>& skipPaths) {
  const std::string path = withoutTrailingSlashes(event.path);
  const auto contains = [&](const std::string& skipped) { return isInside(path, skipped); };
  if (!root.contains(path) || std::ranges::any_of(skipPaths, contains)) return;
  Depth& depth = changes.try_emplace(path, Depth::shallow).first->second;
  if ((event.flags & EventFlag::mustScanSubdirs) != 0) depth = Depth::deep;
}

Changes coalesce(const std::vector<FolderEvent>& events, const RootPath& root,
                 const std::set<std::string>& skipPaths) {
  Changes changes;
  for (const FolderEvent& event : events) addChange(changes, event, root, skipPaths);
  return changes;
}

}  // namespace quon::Refresh
