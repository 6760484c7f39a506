#include "model/LatestJob.h"

#include <exception>
#include <system_error>

#include "base/BackgroundQueue.h"
#include "base/MainQueue.h"

namespace quon {

/// One start. Ends on the main thread, where the tree that it kept may be freed.
struct Job::Flight {
  ShownTreeRef tree;  // none for a job that reads none
  std::function<void(const IsVoid&)> work;
  std::function<void(const std::string&)> finish;
  std::string failure;
  std::weak_ptr<Job*> job;
  std::shared_ptr<GenerationBox> box;
  std::int64_t generation = 0;

  [[nodiscard]] bool isVoid() const { return !box->isCurrent(generation); }

  void run() {
    const IsVoid voided = [this] { return isVoid(); };
    if (isVoid()) return;
    try {
      if (tree) {
        const TreeGate::Reading reading(*tree->gate);
        // A batch may have changed the tree while this waited at the gate.
        if (!isVoid()) work(voided);
      } else {
        work(voided);
      }
    } catch (const std::exception& reason) {
      failure = reason.what();
    }
  }
  void deliver() const {
    const auto alive = job.lock();
    if (!alive || isVoid()) return;
    (*alive)->running = false;
    finish(failure);
  }
};

Job::Job(ModelState& model, std::string_view name, Reads what)
    : state(model), queueName(name), reads(what), self(std::make_shared<Job*>(this)) {
  if (reads != Reads::nothing) state.addReader(*this);
}

Job::~Job() {
  stop();
  if (reads != Reads::nothing) state.removeReader(*this);
}

void Job::stop() {
  box->advance();
  waiting.cancel();
  running = false;
  interrupted = false;
}

void Job::interrupt() {
  if (!running) return;
  stop();
  interrupted = true;
}

void Job::launch(std::function<void(const IsVoid&)> work, std::function<void(const std::string&)> finish,
                 std::chrono::duration<double> delay) {
  stop();
  running = true;
  auto flight = std::make_shared<Flight>(Flight{.tree = reads == Reads::tree ? state.shownTree() : nullptr,
                                                .work = std::move(work),
                                                .finish = std::move(finish),
                                                .failure = {},
                                                .job = self,
                                                .box = box,
                                                .generation = box->advance()});
  const auto land = [&main = state.services.main](std::shared_ptr<Flight> ended) {
    main.post([landed = std::move(ended)] {
      const auto alive = landed->job.lock();
      if (alive) (*alive)->state.perform([landed] { landed->deliver(); });
    });
  };
  try {
    waiting = state.services.queue(queueName).postAfter(delay, [flight, land]() mutable {
      flight->run();
      land(std::move(flight));
    });
  } catch (const std::system_error& refusal) {
    flight->failure = refusal.what();  // the system has no thread to give
    land(std::move(flight));
  }
}

}  // namespace quon
