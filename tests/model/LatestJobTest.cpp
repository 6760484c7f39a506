// Background work of the model: which start counts, what is delivered, and who waits for whom.
#include <gtest/gtest.h>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ModelHome.h"
#include "base/ThreadQueue.h"
#include "model/LatestJob.h"

namespace quon::test {
namespace {

class LatestJobs : public testing::Test {
 protected:
  LatestJob<int> make(ModelState& state, Job::Reads reads) {
    return {state, "job", reads, [this](int&& result) { log.push_back(std::to_string(result)); },
            [this](const std::string& reason) { log.push_back(reason); }};
  }
  static LatestJob<int>::Work returning(int value) {
    return [value](const IsVoid&) -> std::optional<int> { return value; };
  }
  void run() {
    home.queue("job").runPosted();
    home.main.runPosted();
  }

  std::vector<std::string> log;
  ModelHome home;
};

TEST_F(LatestJobs, OnlyTheLatestStartDeliversItsResultOrItsFailure) {
  LatestJob<int> job = make(*home.model, Job::Reads::nothing);
  job.start(returning(1));
  job.start(returning(2));
  run();
  job.start(returning(3));
  home.queue("job").runPosted();
  job.start([](const IsVoid&) -> std::optional<int> { throw std::runtime_error("no disk"); });
  run();
  job.start(returning(4));
  job.stop();
  run();
  EXPECT_FALSE(job.isRunning());
  {
    LatestJob<int> ending = make(*home.model, Job::Reads::nothing);
    ending.start(returning(5));
    home.queue("job").runPosted();
  }
  run();
  home.refusedQueue = "job";
  job.start(returning(6));
  home.main.runPosted();
  EXPECT_EQ(log, (std::vector<std::string>{"2", "no disk", "Resource temporarily unavailable"}));
}

TEST_F(LatestJobs, DropTheLastReferenceToATreeOnTheMainThread) {
  home.top.file("tree/a", 1);
  home.scan();
  LatestJob<int> job = make(*home.model, Job::Reads::treeInParts);
  const std::weak_ptr<const ShownTree> before = home.model->shownTree();
  job.start([this, tree = home.model->shownTree()](const IsVoid& isVoid) -> std::optional<int> {
    home.scan();  // while the job works
    EXPECT_TRUE(isVoid());
    return 1;
  });
  home.queue("job").runPosted();
  EXPECT_FALSE(before.expired()) << "freed on the queue";
  home.main.runPosted();
  EXPECT_TRUE(before.expired());
  EXPECT_TRUE(log.empty());
}

TEST_F(LatestJobs, ALongReaderMakesWayForAWriterAtOnce) {
  home.top.file("tree/a", 1);
  home.scan();
  ThreadQueue queue;
  ModelServices services = home.model->services;
  services.queue = [&queue](std::string_view) -> BackgroundQueue& { return queue; };
  ModelState state(std::move(services));
  state.perform([&] { state.show(*home.model->shownTree()); });
  std::latch reading(1);
  LatestJob<int> job = make(state, Job::Reads::tree);
  job.start([&reading](const IsVoid& isVoid) -> std::optional<int> {
    reading.count_down();
    while (!isVoid()) std::this_thread::yield();
    return std::nullopt;
  });
  reading.wait();
  state.interruptReaders();
  { const TreeGate::Writing writing(*state.shownTree()->gate); }
  EXPECT_TRUE(job.wasInterrupted());
  EXPECT_FALSE(job.isRunning());
}

}  // namespace
}  // namespace quon::test
