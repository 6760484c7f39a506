#include "snapshot/QuonGauge.h"

#include <chrono>
#include <utility>

#include "snapshot/SnapshotBuilder.h"

namespace quon {
namespace {

constexpr std::chrono::duration<double> kInterval{45};

}  // namespace

QuonGauge::QuonGauge(MainQueue& mainQueue, BackgroundQueue& backgroundQueue, const VolumeService& volumeService,
                     std::string homeFolder)
    : _usedFraction(*this),
      _total(*this),
      _free(*this),
      _used(*this),
      _volumeName(*this, volumeNameOrGeneric("")),
      main(mainQueue),
      queue(backgroundQueue),
      volumes(volumeService),
      home(std::move(homeFolder)),
      self(std::make_shared<QuonGauge*>(this)) {
  probe();
}

QuonGauge::~QuonGauge() {
  timer.cancel();
}

/// The next one waits for the answer: a disk that does not answer must not gather questions.
void QuonGauge::probe() {
  queue.post([&asked = volumes, folder = home, &toMain = main, weak = std::weak_ptr(self)] {
    toMain.post([weak, volume = asked.capacity(folder)] {
      if (const auto alive = weak.lock()) (*alive)->take(volume);
    });
  });
}

void QuonGauge::take(const std::optional<VolumeCapacity>& volume) {
  timer = main.postAfter(kInterval, [weak = std::weak_ptr(self)] {
    if (const auto alive = weak.lock()) (*alive)->probe();
  });
  if (!volume || volume->total == 0) return;
  perform([this, &volume] {
    _usedFraction.set(volume->usedFraction());
    _total.set(signedBytes(volume->total));
    _free.set(signedBytes(volume->free()));
    _used.set(signedBytes(volume->used()));
    _volumeName.set(volumeNameOrGeneric(volume->name));
  });
}

}  // namespace quon
