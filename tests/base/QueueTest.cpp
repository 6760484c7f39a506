#include <algorithm>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <latch>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/LoopQueue.h"
#include "base/ManualQueue.h"
#include "base/ThreadQueue.h"
#include "support/Seed.h"

namespace quon {
namespace {

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

TEST(ManualQueue, RunsRandomWorkInTheOrderOfTimeAndPosting) {
  std::mt19937_64 random(test::randomSeed());
  for (int round = 0; round < 100; ++round) {
    ManualQueue queue;
    std::vector<std::pair<std::chrono::nanoseconds, int>> ran;
    std::vector<std::pair<std::chrono::nanoseconds, int>> expected;
    int posted = 0;
    const std::function<void()> postSome = [&] {
      for (std::uint64_t left = random() % 8; left > 0; --left) {
        const std::chrono::milliseconds delay(static_cast<int>(random() % 6) * 40 - 40);
        const auto due = queue.now() + std::max(delay, 0ms);
        const WorkItem item = queue.postAfter(delay, [&, due, number = posted] {
          EXPECT_EQ(queue.now(), due);
          ran.emplace_back(due, number);
          if (posted < 100) postSome();
        });
        if (random() % 5 == 0) {
          EXPECT_TRUE(item.cancel());
        } else {
          expected.emplace_back(due, posted);
        }
        ++posted;
      }
    };
    queue.postAfter(Seconds(std::numeric_limits<double>::infinity()), [&] { ran.emplace_back(0ns, -1); });
    queue.postAfter(Seconds(1e300), [&] { ran.emplace_back(0ns, -1); });
    queue.postAfter(Seconds(std::numeric_limits<double>::quiet_NaN()), postSome);
    queue.runPosted();
    EXPECT_EQ(queue.now(), 0ns);
    EXPECT_TRUE(std::ranges::all_of(ran, [](const auto& each) { return each.first == 0ns; }));
    queue.advance(std::chrono::hours(24 * 365));
    std::ranges::sort(expected);
    ASSERT_EQ(ran, expected);
    EXPECT_EQ(queue.pendingCount(), 2U);
  }
}

TEST(LoopQueue, RunsPostedWorkInTheOrderOfEachThread) {
  LoopQueue queue;
  std::vector<std::vector<int>> ran(4);
  std::size_t total = 0;
  std::vector<std::jthread> threads;
  threads.reserve(4);
  for (auto& own : ran) {
    threads.emplace_back([&] {
      EXPECT_FALSE(queue.isCurrent());
      for (int round = 0; round < 500; ++round) {
        queue.post([&own, &total, &queue, round] {
          EXPECT_TRUE(queue.isCurrent());
          own.push_back(round);
          ++total;
        });
      }
    });
  }
  EXPECT_TRUE(queue.runUntil([&] { return total == 2000; }));
  for (const auto& own : ran) EXPECT_TRUE(own.size() == 500 && std::ranges::is_sorted(own));
}

TEST(LoopQueue, PostedWorkAndEarlierTimersRunBeforeALaterTimer) {
  LoopQueue queue;
  std::string ran;
  const WorkItem late = queue.postAfter(1h, [&] { ran += "late"; });
  std::jthread other;
  queue.postAfter(1ms, [&] {
    ran += "timer ";
    // The loop now waits for the late timer, unless it is woken.
    other = std::jthread([&] { queue.post([&] { ran += "posted"; }); });
  });
  EXPECT_TRUE(queue.runUntil([&] { return ran == "timer posted"; }));
  EXPECT_TRUE(late.isPending());
}

TEST(LoopQueue, PassesOnWhatWorkThrowsAndKeepsTheRest) {
  LoopQueue queue;
  std::string ran;
  queue.post([] { throw std::runtime_error("from work"); });
  queue.post([&] {
    ran += "rest";
    queue.quit();
  });
  EXPECT_THROW(queue.run(), std::runtime_error);
  queue.run();
  EXPECT_EQ(ran, "rest");
}

TEST(LoopQueue, QuitEndsNestedRunsOrElseTheNextRun) {
  LoopQueue queue;
  int left = 0;
  queue.post([&] {
    queue.post([&] { queue.quit(); });
    queue.post([&] { ++left; });
    EXPECT_FALSE(queue.runUntil([] { return false; }));
  });
  queue.run();
  EXPECT_EQ(left, 0);

  // The one quit ended both runs and none beyond them.
  EXPECT_TRUE(queue.runUntil([&] { return left == 1; }));

  queue.quit();
  EXPECT_FALSE(queue.runUntil([] { return true; }));

  const std::jthread other([&] { queue.quit(); });
  queue.run();
}

TEST(ThreadQueue, RunsEverythingInOrderOnItsOwnThread) {
  std::vector<std::thread::id> ranOn;
  std::vector<int> order;
  std::latch done(1);
  {
    ThreadQueue queue([&] { ranOn.push_back(std::this_thread::get_id()); });
    for (int index = 0; index < 1000; ++index) {
      queue.post([&, index] {
        order.push_back(index);
        ranOn.push_back(std::this_thread::get_id());
      });
    }
    queue.post([&] { queue.postAfter(1ms, [&] { done.count_down(); }); });
    done.wait();
  }
  EXPECT_EQ(order.size(), 1000U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
  ASSERT_EQ(ranOn.size(), 1001U);
  EXPECT_NE(ranOn.front(), std::this_thread::get_id());
  EXPECT_EQ(std::ranges::count(ranOn, ranOn.front()), 1001);
}

TEST(ThreadQueue, FinishesTheRunningWorkAndFreesTheRest) {
  const auto captured = std::make_shared<int>();
  std::latch begun(1);
  bool finished = false;
  WorkItem waiting;
  {
    ThreadQueue queue;
    waiting = queue.postAfter(1h, [captured] {});
    queue.post([&] {
      begun.count_down();
      std::this_thread::yield();
      finished = true;
    });
    begun.wait();
  }
  EXPECT_TRUE(finished);
  EXPECT_FALSE(waiting.isPending());
  EXPECT_EQ(captured.use_count(), 1);
}

TEST(ThreadQueueDeathTest, ExceptionFromWorkStopsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto runThrowing = [] {
    ThreadQueue queue;
    std::latch never(1);
    queue.post([] { throw std::runtime_error("from work"); });
    never.wait();
  };
  EXPECT_DEATH(runThrowing(), "from work");
  EXPECT_EXIT(
      {
        ThreadQueue queue;
        queue.post([] { throw std::bad_alloc(); });
        std::latch(1).wait();
      },
      testing::ExitedWithCode(1), "^quon: out of memory\n$");
}

}  // namespace
}  // namespace quon
