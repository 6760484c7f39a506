#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

#include "base/GenerationBox.h"

namespace quon {
namespace {

TEST(GenerationBox, GivesEveryThreadValuesOfItsOwn) {
  GenerationBox box;
  EXPECT_TRUE(box.isCurrent(0));
  std::vector<std::vector<std::int64_t>> taken(4);
  {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (auto& own : taken) {
      threads.emplace_back([&box, &own] {
        for (int round = 0; round < 1000; ++round) own.push_back(box.advance());
      });
    }
  }
  std::set<std::int64_t> distinct;
  for (const auto& own : taken) distinct.insert(own.begin(), own.end());
  EXPECT_EQ(distinct.size(), 4000U);
  EXPECT_EQ(box.current(), 4000);
  EXPECT_TRUE(box.isCurrent(4000));
  EXPECT_FALSE(box.isCurrent(3999));
}

}  // namespace
}  // namespace quon
