#include "model/ModelState.h"

#include <utility>

#include "model/LatestJob.h"

namespace quon {

ModelState::ModelState(ModelServices given)
    : Problems(static_cast<Notifications&>(*this)),
      services(std::move(given)),
      _phase(*this, Phase::scanning),
      _result(*this),
      _version(*this),
      _scope(*this),
      _metric(*this, Metric::logical),
      _lens(*this, Lens::map),
      _mapMode(*this, MapMode::sunburst),
      _selection(*this),
      _hovered(*this),
      _showInspector(*this, true),
      _toast(*this) {}

void ModelState::show(ShownTree tree) {
  interruptReaders();
  tree.id = ++lastId;
  tree.gate = std::make_shared<TreeGate>();
  tree.markers = std::make_shared<KnownMarkers>();
  shown = std::make_shared<const ShownTree>(std::move(tree));
  scopeOfPath = nullptr;
  _result.set(shown->result);
  _scope.set(shown->rootNode());
  _selection.set(std::nullopt);
  _hovered.set(std::nullopt);
}

void ModelState::showNothing() {
  interruptReaders();
  shown = nullptr;
  scopeOfPath = nullptr;
  _result.set(nullptr);
  _scope.set(nullptr);
  _selection.set(std::nullopt);
  _hovered.set(std::nullopt);
}

void ModelState::showChanged(std::shared_ptr<const WalkResult> result) {
  ShownTree changed = *shown;
  changed.result = std::move(result);
  shown = std::make_shared<const ShownTree>(std::move(changed));
  _result.set(shown->result);
  _version.set(_version.get() + 1);
}

void ModelState::deriveScope() {
  if (!shown) {
    _scope.set(nullptr);
    pathOfScope.clear();
    return;
  }
  const RefPtr<DirNode> scope = _scope.get();
  if (!scope || !scope->isWithin(*shown->rootNode())) {
    const bool wasThere = scope && scope == scopeOfPath;
    const RefPtr<DirNode> present = wasThere ? shown->folderAt(pathOfScope) : RefPtr<DirNode>();
    _scope.set(present ? present : shown->rootNode());
    _selection.set(std::nullopt);
    _hovered.set(std::nullopt);
    if (wasThere && !present) _toast.set("the folder you were viewing was removed");
  }
  if (scopeOfPath != _scope.get()) {
    scopeOfPath = _scope.get();
    pathOfScope = shown->pathOf(*scopeOfPath);
  }
}

ViewKey ModelState::viewKey(std::string further) const {
  return {.tree = shown ? shown->id : 0,
          .version = _version.get(),
          .metric = _metric.get(),
          .scopePath = pathOfScope,
          .further = std::move(further)};
}

void ModelState::interruptReaders() {
  for (Job* const reader : readers) reader->interrupt();
}

}  // namespace quon
