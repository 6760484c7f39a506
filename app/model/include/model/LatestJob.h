#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/GenerationBox.h"
#include "base/WorkItem.h"
#include "model/ModelState.h"

namespace quon {

/// True once nobody waits for the result any more: long work asks it now and then, at least every 1,024 rows
/// while it reads the tree, and gives up. Threads: any.
using IsVoid = std::function<bool()>;

/// The part of LatestJob that does not depend on its result.
class Job {
 public:
  enum class Reads {
    nothing,
    tree,         ///< from the beginning to the end
    treeInParts,  ///< enters the gate itself, so that it can wait for a disk outside it
  };

  Job(ModelState& model, std::string_view queueName, Reads what);
  ~Job();
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  /// Voids what was started; nothing is delivered.
  void stop();
  /// The same for one that reads the tree; remembered until the next start.
  void interrupt();
  [[nodiscard]] bool isRunning() const { return running; }
  [[nodiscard]] bool wasInterrupted() const { return interrupted; }

 protected:
  /// Calls `work` on the queue, unless it is void by then, as a reader of the shown tree if the job reads it;
  /// then, unless void, `finish` on the main thread, within an operation, with what `work` threw or "".
  void launch(std::function<void(const IsVoid&)> work, std::function<void(const std::string& failure)> finish,
              std::chrono::duration<double> delay);

 private:
  struct Flight;

  ModelState& state;
  const std::string queueName;
  const Reads reads;
  bool running = false;
  bool interrupted = false;
  std::shared_ptr<GenerationBox> box = std::make_shared<GenerationBox>();
  std::shared_ptr<Job*> self;  // what posted work refers to weakly
  WorkItem waiting;
};

/// Background work of which only the latest start counts. It has its queue, knows whether it reads the tree
/// (and keeps the shown one until its end), and delivers its result, or why there is none, to the main thread
/// within an operation of the model. Starting it again voids the earlier start, whose result is dropped.
///
/// Threads: main only; work runs on the queue and refers to nothing of the model.
template <typename Result>
class LatestJob : public Job {
 public:
  /// Null when it gave up because it was void.
  using Work = std::function<std::optional<Result>(const IsVoid&)>;

  LatestJob(ModelState& model, std::string_view queue, Reads what, std::function<void(Result&&)> deliver,
            std::function<void(const std::string& reason)> fail)
      : Job(model, queue, what), delivered(std::move(deliver)), failed(std::move(fail)) {}

  void start(Work work, std::chrono::duration<double> delay = {}) {
    const auto result = std::make_shared<std::optional<Result>>();
    launch([work = std::move(work), result](const IsVoid& isVoid) { *result = work(isVoid); },
           [this, result](const std::string& failure) {
             if (*result) {
               delivered(std::move(**result));
             } else if (!failure.empty()) {
               failed(failure);
             }
           },
           delay);
  }

 private:
  std::function<void(Result&&)> delivered;
  std::function<void(const std::string&)> failed;
};

}  // namespace quon
