#pragma once

#include <cstdint>
#include <time.h>

#include "maketree/Random.h"

namespace quon::bench {

/// Logical bytes of a file: about 60 % of the files below 4 KiB, about 2 % at or above 1 MiB, none above 512
/// MiB.
[[nodiscard]] std::uint64_t drawFileSize(Random& random);

/// A time of change between 2010 and the end of 2025, recent ones more often. Does not depend on today.
[[nodiscard]] timespec drawTime(Random& random);

}  // namespace quon::bench
