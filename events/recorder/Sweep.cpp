#include "recorder/Sweep.h"

#include <utility>

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 262144;

}  // namespace

Sweep::Sweep(const Settings& settings, std::unique_ptr<ChangeTimes> changeTimes, std::function<void()> ended)
    : times(std::move(changeTimes)),
      walk({.own = settings.own,
            .visitor = settings.visitor,
            .changeTimes = times.get(),
            .device = settings.device}),
      onEnd(std::move(ended)),
      working(settings.threadCount) {
  walk.begin(settings.root, settings.rootToken);
  for (unsigned index = 0; index < settings.threadCount; ++index) {
    threads.push_back(settings.threads.start("quon-sweep", kStackBytes, [this] {
      FolderWalk::Worker worker;
      walk.work(worker);
      if (--working == 0) onEnd();
    }));
  }
}

Sweep::~Sweep() {
  walk.cancel();
  for (const auto& thread : threads) thread->join();
}

std::vector<SweptFolder> Sweep::take() {
  return times ? times->take() : std::vector<SweptFolder>();
}

}  // namespace quon
