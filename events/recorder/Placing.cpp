#include "recorder/Placing.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "watch/WatchTree.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 262144;
constexpr unsigned kMostThreads = 8;

}  // namespace

Placing::Placing(const Settings& settings, std::function<void()> ended)
    : walk({.own = settings.own, .visitor = settings.visitor, .device = settings.device}),
      onEnd(std::move(ended)),
      working(std::clamp(settings.threads.activeProcessors(), 2U, kMostThreads)) {
  walk.begin(settings.root, WatchTree::kNone);
  const unsigned wanted = working;
  for (unsigned index = 0; index < wanted; ++index) {
    try {
      threads.push_back(settings.threads.start("quon-place", kStackBytes, [this] {
        FolderWalk::Worker worker;
        walk.work(worker);
        if (--working == 0) onEnd();
      }));
    } catch (const std::system_error&) {
      if (threads.empty()) throw;
      // Fewer will do; those that run may have ended already.
      if ((working -= wanted - index) == 0) onEnd();
      return;
    }
  }
}

Placing::~Placing() {
  walk.cancel();
  for (const auto& thread : threads) thread->join();
}

}  // namespace quon
