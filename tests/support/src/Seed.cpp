#include "support/Seed.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <string>

namespace quon::test {

std::uint64_t randomSeed() {
  const char* given = std::getenv("QUON_TEST_SEED");  // NOLINT(concurrency-mt-unsafe): nothing sets variables
  const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device{}();
  std::cout << "QUON_TEST_SEED=" << seed << std::endl;
  testing::Test::RecordProperty("seed", std::to_string(seed));
  return seed;
}

}  // namespace quon::test
