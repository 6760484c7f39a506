#include <atomic>
#include <cstddef>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include "base/WorkItem.h"

namespace quon {
namespace {

TEST(WorkItem, RunsAtMostOnceAndFreesItsCaptures) {
  const auto captured = std::make_shared<int>();
  const WorkItem run([captured] { ++*captured; });
  const WorkItem copy =
      run;  // NOLINT(performance-unnecessary-copy-initialization): what copies share is tested
  EXPECT_TRUE(copy.isPending());
  run.run();
  copy.run();
  EXPECT_FALSE(copy.cancel());
  const WorkItem cancelled([captured] { ++*captured; });
  EXPECT_TRUE(cancelled.cancel());
  EXPECT_FALSE(cancelled.isPending());
  cancelled.run();
  EXPECT_EQ(*captured, 1);
  EXPECT_EQ(captured.use_count(), 1);
  EXPECT_FALSE(WorkItem().cancel());
}

TEST(WorkItem, IsNeverBothCancelledAndRun) {
  constexpr int rounds = 2000;
  std::vector<int> runs(rounds, 0);
  std::vector<int> cancels(rounds, 0);
  std::vector<WorkItem> items;
  items.reserve(rounds);
  for (int& count : runs) items.emplace_back([&count] { ++count; });
  // Both threads leave each wait within a few instructions of each other; a barrier would wake one late.
  std::atomic<std::size_t> arrivals{0};
  const auto inStep = [&](const std::function<void(std::size_t)>& body) {
    for (std::size_t round = 0; round < items.size(); ++round) {
      ++arrivals;
      while (arrivals < 2 * (round + 1)) std::this_thread::yield();
      body(round);
    }
  };
  {
    std::jthread canceller(
        [&] { inStep([&](std::size_t round) { cancels[round] = items[round].cancel() ? 1 : 0; }); });
    inStep([&](std::size_t round) { items[round].run(); });
  }
  for (std::size_t round = 0; round < items.size(); ++round)
    ASSERT_EQ(runs[round] + cancels[round], 1) << round;
}

}  // namespace
}  // namespace quon
