#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "model/TreeGate.h"

namespace quon::test {
namespace {

TEST(TreeGate, ReadersSeeNoHalfWrittenState) {
  TreeGate gate;
  int first = 0;
  int second = 0;
  std::atomic<bool> torn{false};
  std::vector<std::thread> threads;
  threads.reserve(5);
  for (int reader = 0; reader < 3; ++reader) {
    threads.emplace_back([&] {
      for (int round = 0; round < 2000; ++round) {
        const TreeGate::Reading reading(gate);
        if (first != second) torn = true;
      }
    });
  }
  for (int writer = 0; writer < 2; ++writer) {
    threads.emplace_back([&] {
      for (int round = 0; round < 500; ++round) {
        const TreeGate::Writing writing(gate);
        ++first;
        ++second;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(torn);
  EXPECT_EQ(first, 1000);
}

TEST(TreeGate, AWriterIsNotStarvedByReadersThatKeepComing) {
  TreeGate gate;
  std::atomic<bool> written{false};
  std::vector<std::thread> readers;
  readers.reserve(3);
  for (int reader = 0; reader < 3; ++reader) {
    readers.emplace_back([&] {
      while (!written) {
        const TreeGate::Reading reading(gate);
        std::this_thread::yield();
      }
    });
  }
  {
    const TreeGate::Writing writing(gate);
    written = true;
  }
  for (std::thread& reader : readers) reader.join();
}

}  // namespace
}  // namespace quon::test
