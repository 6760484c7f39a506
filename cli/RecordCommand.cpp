#include <fmt/format.h>

#include "Commands.h"
#include "base/Log.h"
#include "events/EventRecorder.h"

namespace quon::cli {

/// What the background service does, in the foreground; an interrupt ends the process.
int runRecord(Session& session) {
  StandardErrorLog log;
  EventRecorder recorder(session.platform.threads, session.folders, log);
  if (!recorder.tryBegin()) {
    const int other = recorder.otherRecorder();
    throw CommandFailure(other == 0 ? "another process records events already"
                                    : fmt::format("process {} records events already", other));
  }
  warn("recording file-system events");
  recorder.run();
  return 0;
}

}  // namespace quon::cli
