#include "ModelHome.h"

namespace quon::test {

ModelHome::ModelHome() : root(top.folder("tree")) {
  restart();
}
ModelHome::~ModelHome() = default;

void ModelHome::restart() {
  model.reset();
  model = std::make_unique<AppModel>(AppModel::Services{
      platform.services(), events, defaults, desktop, log,
      Folders{.home = top.path, .data = top.at("data"), .config = top.at("config"), .state = top.at("state")},
      main, searches, lenses, liveEvents, liveWork,
      [this] { return std::chrono::duration<double>(liveWork.now()); }, [this] { return now; }});
}

void ModelHome::finish() {
  main.runUntil([this] { return !model->isBusy(); });
}

void ModelHome::scan() {
  model->scan(root);
  finish();
}

void ModelHome::settle() {
  for (int round = 0; round < 4; ++round) {
    searches.runPosted();
    lenses.runPosted();
    liveEvents.runPosted();
    liveWork.runPosted();
    main.runPosted();
  }
}

}  // namespace quon::test
