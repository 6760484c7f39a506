#include "Crew.h"

#include <algorithm>
#include <utility>

namespace quon {
namespace {

constexpr unsigned kSamplesPerAdjustment = 8;
/// Workers that wait for more than this share of their time leave processors idle, however many there are.
constexpr int kMostlyWaiting = 60;    // percent
constexpr int kMostlyComputing = 20;  // percent

}  // namespace

Crew::Crew(unsigned firstWorkers, unsigned mostWorkers)
    : first(firstWorkers), most(std::max(firstWorkers, mostWorkers)), wanted(firstWorkers) {}

bool Crew::waitForVacancy() {
  const MutexLock held(lock);
  while (over || present >= wanted) {
    if (present == 0) return false;
    changed.wait(lock);
  }
  ++present;
  return true;
}

void Crew::couldNotStart() {
  const MutexLock held(lock);
  leave();
  most = wanted = present;
}

void Crew::record(Sample sample, bool hasMore) {
  const MutexLock held(lock);
  sum.whole += sample.whole;
  sum.waited += sample.waited;
  if (++samples == kSamplesPerAdjustment) adjust(hasMore);
  while (!over && atWork() > wanted) {
    ++pausing;
    changed.wait(lock);
    --pausing;
  }
}

/// Doubles, so that the bound is reached within the first thousand folders.
void Crew::adjust(bool hasMore) {
  const Sample latest = std::exchange(sum, {});
  samples = 0;
  const auto share = latest.waited * 100 / std::max(latest.whole, std::chrono::nanoseconds(1));
  if (share > kMostlyWaiting && hasMore && wanted < most) {
    wanted = std::min(wanted * 2, most);
    changed.broadcast();
  } else if (share < kMostlyComputing && wanted > first) {
    wanted = std::max(wanted / 2, first);
  }
}

bool Crew::leaveToOthers() {
  const MutexLock held(lock);
  if (atWork() <= 1) return false;
  leave();
  most = wanted = std::min(wanted, atWork());
  return true;
}

void Crew::leaveAtEnd() {
  const MutexLock held(lock);
  over = true;
  leave();
}

void Crew::leave() {
  --present;
  changed.broadcast();
}

}  // namespace quon
