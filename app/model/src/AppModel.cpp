// What the user looks at and how they move about in it. Scans and loads: ModelScans.cpp; searches:
// ModelSearch.cpp; the lenses: ModelLenses.cpp; live updates: ModelLive.cpp.
#include "model/AppModel.h"

#include <utility>

#include "ModelRun.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/Desktop.h"
#include "platform/Files.h"
#include "platform/UserDefaults.h"
#include "rows/FolderRows.h"

namespace quon {

std::string withoutLinksAbove(const FileService& files, const std::string& path) {
  const std::string_view name = lastComponent(path);
  if (!path.starts_with('/') || path == "/") return path;
  std::error_code error;
  if (name == "." || name == "..") return files.canonical(path, error).value_or(path);
  const auto above = files.canonical(path.substr(0, path.size() - name.size()), error);
  return above ? joinPath(pathPrefix(*above), name) : path;
}

AppModel::AppModel(Services given) : services(std::move(given)), self(std::make_shared<AppModel*>(this)) {
  _rootPath.set(services.folders.home);
  _hasFullDiskAccess.set(services.desktop.hasFullDiskAccess());
  _showOnboarding.set(!services.defaults.flag("hasOnboarded"));
  gapProbeArmed = services.defaults.flag("gapprobe");
  ownObservations.push_back(_query.observe([this](const std::string&) { scheduleSearch(); }));
  ownObservations.push_back(_scope.observe(
      [this](const RefPtr<DirNode>& scope) { scopePath = scope ? scope->path(treeRoot()) : std::string(); }));
  ownObservations.push_back(_metric.observe([this](const Metric&) { scheduleSearch(); }));
}

AppModel::~AppModel() {
  self.reset();
  timer.cancel();
  liveWatcher.reset();
  endLensJobs();
  for (const auto& generation : {searchGen, paletteGen}) generation->advance();
  cancel();
  // Their threads are joined here: they use the services, which the owner may end next.
  retired.clear();
  const MutexLock held(runLock);
  run.reset();
}

std::string_view AppModel::treeRoot() const {
  return pathPrefix(shownRoot);
}

/// The walk follows no links, so those that lead to the root are resolved; a root that is one is refused.
std::string AppModel::rootAt(const std::string& path) const {
  return withoutLinksAbove(services.platform.files,
                           withoutTrailingSlashes(expandTilde(path, services.folders.home)));
}

std::string AppModel::indexURL() const {
  return ScanStore::canonicalURL(services.folders.index(), RootPath(_rootPath.get()));
}

void AppModel::openFolder() {
  services.desktop.chooseFolder(_rootPath.get(), [weak = Self(self)](const std::string& chosen) {
    if (const auto alive = weak.lock()) (*alive)->scan(chosen);
  });
}

std::vector<std::string> AppModel::recentRoots() const {
  return services.defaults.texts("recentRoots");
}

void AppModel::openPrivacySettings() {
  services.desktop.openPrivacySettings();
}

const std::vector<Entry>& AppModel::entries() {
  static const std::vector<Entry> kNone;
  if (!_scope.get() || !_result.get()) return kNone;
  if (hasQuery() && _searchHits.get()) return *_searchHits.get();
  const bool fresh = entriesCache && entriesCache->scope == _scope.get() &&
                     entriesCache->metric == _metric.get() && entriesCache->version == _version.get();
  if (!fresh) {
    entriesCache = {_scope.get(), _metric.get(), _version.get(), scopeEntries(_scope.get(), childCap)};
  }
  return entriesCache->rows;
}

std::vector<Entry> AppModel::scopeEntries(const RefPtr<DirNode>& node, std::size_t cap) const {
  return quon::scopeEntries(node, treeRoot(), _metric.get(), cap);
}

std::optional<Entry> AppModel::entryFor(const std::string& path) const {
  if (!_result.get()) return std::nullopt;
  const auto below = relativeTo(path, shownRoot);
  if (!below) return std::nullopt;
  const RefPtr<DirNode>& root = _result.get()->root;
  if (const RefPtr<DirNode> folder = folderAt(root, *below)) return Entry::ofFolder(folder, path);
  const std::size_t slash = below->rfind('/');
  const bool atTop = slash == std::string_view::npos;
  const RefPtr<DirNode> container = atTop ? root : folderAt(root, below->substr(0, slash));
  if (!container) return std::nullopt;
  const std::string_view name = atTop ? *below : below->substr(slash + 1);
  for (const FileEntry& file : container->keptFiles) {
    if (file.name == name) return Entry::ofFile(file, container, container->path(treeRoot()));
  }
  return std::nullopt;
}

std::optional<int> AppModel::topSlot(const DirNode& folder) const {
  const DirNode* top = nullptr;
  for (const DirNode* at = &folder; at->parent != nullptr; at = at->parent) top = at;
  const auto slot = slotIndex.find(top);
  return slot == slotIndex.end() ? std::nullopt : std::optional(slot->second);
}

void AppModel::jump(const Entry& entry) {
  if (std::holds_alternative<Entry::Rest>(entry.payload) || !_result.get()) return;
  const Entry row = entry;  // it may lie in the hits that clearQuery drops
  const auto* const file = std::get_if<Entry::File>(&row.payload);
  RefPtr<DirNode> target = file == nullptr ? std::get<RefPtr<DirNode>>(row.payload) : file->container;
  if (!target->isWithin(*_result.get()->root)) {
    const std::string path = row.path();
    const std::string folder = file == nullptr ? path : path.substr(0, path.rfind('/'));
    const auto below = relativeTo(folder, shownRoot);
    target = below ? folderAt(_result.get()->root, *below) : RefPtr<DirNode>();
    if (!target) return _toast.set(displayText(path) + " is no longer there");
  }
  clearQuery();
  _scope.set(target);
  _selection.set(file == nullptr ? std::nullopt : std::optional(row.id));
  _hovered.set(std::nullopt);
  if (file != nullptr) _showInspector.set(true);
}

void AppModel::goUp() {
  if (_scope.get() && _scope.get()->parent != nullptr) _scope.set(RefPtr<DirNode>(_scope.get()->parent));
}

void AppModel::copyPath(const Entry& entry) {
  if (std::holds_alternative<Entry::Rest>(entry.payload)) return;
  const std::string path = entry.path();
  services.desktop.copyText(path);
  _toast.set("copied " + displayText(path));
}

}  // namespace quon
