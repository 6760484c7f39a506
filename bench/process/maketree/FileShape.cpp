#include "maketree/FileShape.h"

#include <algorithm>

namespace quon::bench {
namespace {

/// Of 10,000 files, those whose size has 0 (empty), 1, 2, ... binary digits. 21 digits begin at 1 MiB.
constexpr std::array<std::uint16_t, 30> sizeDigitWeights{150,  10,   10,   20,   40,  80,  150, 300, 550, 850,
                                                         1200, 1400, 1420, 1200, 900, 600, 400, 250, 130, 80,
                                                         60,   100,  50,   25,   12,  6,   3,   2,   1,   1};

constexpr std::int64_t firstSecond = 1'262'304'000;  // 2010-01-01
constexpr std::uint32_t seconds = 504'921'600;       // to 2026-01-01

}  // namespace

std::uint64_t drawFileSize(Random& random) {
  const std::size_t digits = random.pick(sizeDigitWeights);
  if (digits == 0) return 0;
  const std::uint64_t least = std::uint64_t{1} << (digits - 1);
  return least + (random.next() & (least - 1));
}

timespec drawTime(Random& random) {
  const std::uint32_t second = std::max(random.below(seconds), random.below(seconds));
  return {.tv_sec = firstSecond + second, .tv_nsec = static_cast<long>(random.below(1'000'000'000))};
}

}  // namespace quon::bench
