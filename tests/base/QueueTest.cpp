#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>
#include <latch>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/LoopQueue.h"
#include "base/ManualQueue.h"
#include "base/ThreadQueue.h"

namespace quon {
namespace {

using namespace std::chrono_literals;
using Seconds = std::chrono::duration<double>;

TEST(ManualQueue, RunsWorkAtItsOwnTimeInTheOrderOfTime) {
  ManualQueue queue;
  std::vector<std::pair<std::string, std::chrono::nanoseconds>> ran;
  const auto note = [&](const std::string& name) {
    return [&, name] { ran.emplace_back(name, queue.now()); };
  };
  queue.postAfter(2s, note("later"));
  queue.postAfter(1.5s, note("first at 1.5"));
  queue.postAfter(1.5s, note("second at 1.5"));
  queue.postAfter(1s, [&] { queue.postAfter(0.5s, note("third at 1.5")); });
  queue.postAfter(-1s, note("past"));
  queue.post(note("posted"));
  EXPECT_TRUE(ran.empty());
  queue.advance(1.5s);
  using Ran = decltype(ran);
  EXPECT_EQ(ran, (Ran{{"past", 0s},
                      {"posted", 0s},
                      {"first at 1.5", 1500ms},
                      {"second at 1.5", 1500ms},
                      {"third at 1.5", 1500ms}}));
  EXPECT_EQ(queue.pendingCount(), 1U);
}

TEST(ManualQueue, KeepsExtremeDelaysInOrder) {
  ManualQueue queue;
  std::string ran;
  queue.postAfter(Seconds(std::numeric_limits<double>::infinity()), [&] { ran += "never"; });
  queue.postAfter(Seconds(1e300), [&] { ran += "never"; });
  queue.postAfter(Seconds(std::numeric_limits<double>::quiet_NaN()), [&] { ran += "now"; });
  queue.advance(std::chrono::hours(24 * 365));
  EXPECT_EQ(ran, "now");
}

TEST(ManualQueue, RunsPostedWorkWithoutMovingTheClock) {
  ManualQueue queue;
  std::string ran;
  queue.postAfter(1ms, [&] { ran += "late"; });
  const WorkItem cancelled = queue.postAfter(0s, [&] { ran += "cancelled"; });
  queue.post([&] {
    ran += "a";
    queue.post([&] { ran += "b"; });
    throw std::runtime_error("from work");
  });
  EXPECT_EQ(queue.pendingCount(), 3U);
  cancelled.cancel();
  EXPECT_EQ(queue.pendingCount(), 2U);
  EXPECT_THROW(queue.runPosted(), std::runtime_error);
  queue.runPosted();
  EXPECT_EQ(ran, "ab");
  EXPECT_EQ(queue.now(), 0ns);
}

TEST(ManualQueue, WaitsForWhatOtherThreadsPost) {
  ManualQueue queue;
  EXPECT_TRUE(queue.isCurrent());
  int ran = 0;
  std::vector<std::jthread> threads;
  threads.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      EXPECT_FALSE(queue.isCurrent());
      for (int round = 0; round < 100; ++round) queue.post([&] { ++ran; });
    });
  }
  queue.runUntil([&] { return ran == 400; });
  EXPECT_EQ(queue.pendingCount(), 0U);
}

TEST(LoopQueue, RunsWhatThreadsPostInTheOrderOfEach) {
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

TEST(LoopQueue, TimersWaitNeitherForLaterOnesNorKeepPostedWork) {
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

TEST(LoopQueue, CancelledWorkNeverRuns) {
  LoopQueue queue;
  bool ran = false;
  WorkItem dueNext;
  queue.post([&] { EXPECT_TRUE(dueNext.cancel()); });
  dueNext = queue.postAfter(0s, [&] { ran = true; });
  queue.post([&] { queue.quit(); });
  queue.run();
  EXPECT_FALSE(ran);
}

TEST(LoopQueue, AnExceptionComesOutAndTheRestStaysQueued) {
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

TEST(LoopQueue, QuitEndsNestedRunsAndIsNotLostBetweenRuns) {
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

TEST(LoopQueue, FreesWhatItNeverRan) {
  const auto captured = std::make_shared<int>();
  WorkItem outlives;
  {
    LoopQueue queue;
    outlives = queue.postAfter(1h, [captured] {});
    queue.post([captured] {});
  }
  EXPECT_FALSE(outlives.isPending());
  EXPECT_EQ(captured.use_count(), 1);
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

TEST(ThreadQueue, EndsAfterTheRunningWorkAndDropsTheRest) {
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

TEST(ThreadQueueDeathTest, AnExceptionFromWorkStopsTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto runThrowing = [] {
    ThreadQueue queue;
    std::latch never(1);
    queue.post([] { throw std::runtime_error("the disk is on fire"); });
    never.wait();
  };
  EXPECT_DEATH(runThrowing(), "the disk is on fire");
}

}  // namespace
}  // namespace quon
