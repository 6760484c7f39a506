#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/BackgroundQueue.h"
#include "base/MainQueue.h"
#include "base/Notifications.h"
#include "base/Observed.h"
#include "base/WorkItem.h"
#include "platform/Volume.h"

namespace quon {

/// How full the volume of the home folder is, whatever was scanned: asked at once and every 45 seconds. What cannot
/// be asked leaves the values as they were. Threads: main only; the volume is asked on the queue, where a disk that
/// does not answer holds up nothing but the gauge.
class QuonGauge final : public Notifications {
 public:
  Observed<double> _usedFraction;  ///< 0 to 1
  Observed<std::int64_t> _total;   ///< bytes
  Observed<std::int64_t> _free;
  Observed<std::int64_t> _used;
  Observed<std::string> _volumeName;

  /// All of them outlive the gauge.
  QuonGauge(MainQueue& mainQueue, BackgroundQueue& backgroundQueue, const VolumeService& volumeService,
            std::string home);
  ~QuonGauge();
  QuonGauge(const QuonGauge&) = delete;
  QuonGauge& operator=(const QuonGauge&) = delete;

 private:
  void probe();
  void take(const std::optional<VolumeCapacity>& volume);

  MainQueue& main;
  BackgroundQueue& queue;
  const VolumeService& volumes;
  const std::string home;
  std::shared_ptr<QuonGauge*> self;  // what posted work refers to weakly
  WorkItem timer;
};

}  // namespace quon
