#include "model/Navigator.h"

#include <variant>

#include "base/Text.h"
#include "map/TopSlot.h"
#include "model/Search.h"
#include "platform/Desktop.h"
#include "rows/FolderRows.h"

namespace quon {

Navigator::Navigator(ModelState& model, Search& searchField) : state(model), search(searchField) {}

const std::vector<Entry>& Navigator::entries() {
  static const std::vector<Entry> kNone;
  if (!state.shownTree() || !state._scope.get()) return kNone;
  if (search.hasQuery() && search._searchHits.get()) return *search._searchHits.get();
  ViewKey key = state.viewKey();
  if (!entriesCache || entriesCache->key != key) {
    entriesCache = {std::move(key), scopeEntries(state._scope.get(), childCap)};
  }
  return entriesCache->rows;
}

std::vector<Entry> Navigator::scopeEntries(const RefPtr<DirNode>& node, std::size_t cap) const {
  if (!state.shownTree()) return {};
  return quon::scopeEntries(node, state.shownTree()->root.prefix(), state._metric.get(), cap);
}

std::optional<Entry> Navigator::entryFor(const std::string& path) const {
  return state.shownTree() ? state.shownTree()->entryAt(path) : std::nullopt;
}

std::optional<int> Navigator::topSlot(const DirNode& folder) const {
  return state._scope.get() ? quon::topSlot(folder, *state._scope.get()) : std::nullopt;
}

void Navigator::jump(const Entry& entry) {
  state.perform([this, row = entry] {
    const ShownTreeRef tree = state.shownTree();
    if (std::holds_alternative<Entry::Rest>(row.payload) || !tree) return;
    const auto* const file = std::get_if<Entry::File>(&row.payload);
    RefPtr<DirNode> target = file == nullptr ? std::get<RefPtr<DirNode>>(row.payload) : file->container;
    if (!target->isWithin(*tree->rootNode())) {
      const std::string path = row.path();
      target = tree->folderAt(file == nullptr ? path : path.substr(0, path.rfind('/')));
      if (!target) return state._toast.set(displayText(path) + " is no longer there");
    }
    search.clearQuery();
    state._scope.set(target);
    state._selection.set(file == nullptr ? std::nullopt : std::optional(row.id));
    state._hovered.set(std::nullopt);
    if (file != nullptr) state._showInspector.set(true);
  });
}

void Navigator::goUp() {
  state.perform([this] {
    const RefPtr<DirNode>& scope = state._scope.get();
    if (scope && scope->parent != nullptr) state._scope.set(RefPtr<DirNode>(scope->parent));
  });
}

void Navigator::copyPath(const Entry& entry) {
  if (std::holds_alternative<Entry::Rest>(entry.payload)) return;
  const std::string path = entry.path();
  state.services.desktop.copyText(path);
  state._toast.set("copied " + displayText(path));
}

}  // namespace quon
