#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

#include "base/GenerationBox.h"
#include "base/RefPtr.h"

namespace quon {
namespace {

class Counted : public RefCounted<Counted> {
 public:
  explicit Counted(int& destroyedCount) : destroyed(destroyedCount) {}
  static void destroy(Counted* object) {
    ++object->destroyed;
    delete object;
  }

 private:
  int& destroyed;
};

TEST(RefPtr, DestroysOnceWithTheLastReference) {
  int destroyed = 0;
  RefPtr<Counted> first(new Counted(destroyed));
  RefPtr<Counted> second = first;
  EXPECT_EQ(first, second);
  first = nullptr;
  second = RefPtr<Counted>(second.get());
  RefPtr<Counted> third = std::move(second);
  EXPECT_EQ(destroyed, 0);

  RefPtr<Counted> again;
  Counted* leaked = third.leak();
  again = RefPtr<Counted>(leaked);
  EXPECT_FALSE(leaked->releaseIsLast());
  again = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(RefPtr, IsCopiedAndDroppedByManyThreads) {
  int destroyed = 0;
  {
    RefPtr<Counted> shared(new Counted(destroyed));
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([held = shared] {
        for (int round = 0; round < 1000; ++round) std::vector<RefPtr<Counted>> copies(3, held);
      });
    }
    shared = nullptr;
  }
  EXPECT_EQ(destroyed, 1);
}

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
