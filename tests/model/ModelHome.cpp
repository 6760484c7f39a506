#include "ModelHome.h"

#include <system_error>
#include <utility>

namespace quon::test {

std::unique_ptr<RunningThread> HeldThreads::start(const std::string& name, std::size_t stackBytes,
                                                  std::function<void()> body) const {
  if (!name.starts_with("quon-")) return real.start(name, stackBytes, std::move(body));
  if (refused) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  return real.start(name, stackBytes, [this, body = std::move(body)] {
    held.wait(true);
    body();
  });
}

ModelHome::ModelHome() : root(top.folder("tree")), userHome(top.path) {
  restart();
}
ModelHome::~ModelHome() = default;

void ModelHome::restart() {
  model.reset();
  model = std::make_unique<AppModel>(AppModel::Services{
      services, events, defaults, desktop, log,
      Folders{.home = userHome,
              .data = top.at("data"),
              .config = top.at("config"),
              .state = top.at("state"),
              .cacheHome = userHome + "/.cache",
              .configHome = userHome + "/.config",
              .dataHome = userHome + "/.local/share"},
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
