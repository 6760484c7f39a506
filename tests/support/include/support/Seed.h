#pragma once

#include <cstdint>

namespace quon::test {

/// The seed of this run: from the environment variable QUON_TEST_SEED to repeat a failure, otherwise fresh.
/// It is printed, and stands in the test's XML report. Threads: main only.
[[nodiscard]] std::uint64_t randomSeed();

}  // namespace quon::test
