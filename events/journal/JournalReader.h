#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "events/EventJournal.h"
#include "journal/LiveStream.h"
#include "journal/StateWatch.h"

namespace quon {

/// A client's side of the journal: asks the recorder for what the streams want and hands them what it wrote.
/// Threads: one.
class JournalReader {
 public:
  using Streams = std::vector<std::shared_ptr<LiveStream>>;

  /// Opens the journal; `wake` is an eventfd that ends the wait. Throws std::runtime_error.
  JournalReader(std::string stateFolder, Log& log, int wake);

  /// Waits until there may be something to do, or until the eventfd is written to.
  void wait();
  /// Does it for the streams that there are now.
  void serve(const Streams& streams);

 private:
  void readState();
  void reopen();
  void serveAll(const Streams& streams);
  void ask(LiveStream& stream);
  void takeAnswer(LiveStream& stream);
  void readOn(LiveStream& stream);
  [[nodiscard]] std::vector<FolderEvent> eventsAfter(LiveStream& stream);
  void failed(const DatabaseError& failure);

  const std::string stateFolder;
  Log& log;
  const int wake;
  std::optional<StateWatch> stateWatch;
  std::optional<EventJournal> journal;
  Streams known;
  bool replaced = false;  // the streams have to ask again
  bool mustRing = false;
  std::optional<std::chrono::steady_clock::time_point> retry;
  std::string lastFailure;
};

}  // namespace quon
