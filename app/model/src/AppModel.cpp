#include "model/AppModel.h"

#include <utility>

namespace quon {

AppModel::AppModel(ModelServices given)
    : ModelState(std::move(given)),
      Settings(static_cast<ModelState&>(*this)),
      ScanSession(static_cast<ModelState&>(*this), static_cast<Settings&>(*this)),
      TrashBin(static_cast<ModelState&>(*this), static_cast<ScanSession&>(*this)),
      WidgetSnapshot(static_cast<ModelState&>(*this)),
      GapProbe(static_cast<ModelState&>(*this), static_cast<const Settings&>(*this)),
      Catalogue(static_cast<ModelState&>(*this)),
      Search(static_cast<ModelState&>(*this)),
      CommandBar(static_cast<ModelState&>(*this)),
      Navigator(static_cast<ModelState&>(*this), static_cast<Search&>(*this)),
      LensList(static_cast<ModelState&>(*this)) {
  setDerivation([this] { derive(); });
}

AppModel::~AppModel() {
  end();
}

void AppModel::scanIfNeeded(const std::string& path) {
  perform([this, path] {
    if (!scanStarted && options.collectsIndexes) collectIndexGarbage();
    ScanSession::scanIfNeeded(path);
  });
}

/// At the end of each operation. Later ones depend on earlier ones.
void AppModel::derive() {
  deriveScope();
  deriveSearch();
  deriveCommandBar();
  deriveLenses(_lens.get());
  deriveWidgetSnapshot();
  if (shownTree()) armGapProbeIfRequested();
}

}  // namespace quon
