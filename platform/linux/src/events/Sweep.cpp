#include "Sweep.h"

#include <utility>

#include "platform_linux/LinuxThreads.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 262144;

}  // namespace

Sweep::Sweep(const std::string& root, const FolderWalk::Settings& settings, int rootToken,
             unsigned threadCount, std::function<void()> told)
    : walk(settings), onEnd(std::move(told)), working(static_cast<int>(threadCount)) {
  walk.begin(root, rootToken);
  for (unsigned index = 0; index < threadCount; ++index) {
    workers.push_back(std::make_unique<FolderWalk::Worker>());
    threads.push_back(LinuxThreads().start("quon-sweep", kStackBytes, [this, own = workers.back().get()] {
      walk.work(*own);
      if (--working == 0) onEnd();
    }));
  }
}

Sweep::~Sweep() {
  walk.cancel();
  for (const auto& thread : threads) thread->join();
}

std::vector<SweptFolder> Sweep::take() {
  std::vector<SweptFolder> all;
  for (const auto& worker : workers) {
    all.insert(all.end(), std::make_move_iterator(worker->changed.begin()),
               std::make_move_iterator(worker->changed.end()));
  }
  return all;
}

}  // namespace quon
