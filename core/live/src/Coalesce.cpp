#include "base/Path.h"
#include "live/Refresh.h"
#include "platform/Events.h"

namespace quon::Refresh {

bool addChange(Changes& changes, const FolderEvent& event, const std::string& rootPath,
               const std::set<std::string>& skipPaths) {
  const std::string path = withoutTrailingSlashes(event.path);
  if (!isInside(path, rootPath)) return false;
  for (const std::string& skipped : skipPaths) {
    if (isInside(path, skipped)) return false;
  }
  bool& deep = changes[path];
  deep = deep || (event.flags & EventFlag::mustScanSubdirs) != 0;
  return true;
}

Changes coalesce(const std::vector<FolderEvent>& events, const std::string& rootPath,
                 const std::set<std::string>& skipPaths) {
  Changes changes;
  for (const FolderEvent& event : events) addChange(changes, event, rootPath, skipPaths);
  return changes;
}

}  // namespace quon::Refresh
