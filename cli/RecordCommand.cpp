#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "events/EventRecorder.h"
#include "platform_linux/SystemLog.h"

namespace quon::cli {

/// What the background service does, in the foreground, until an interrupt.
int runRecord(Session& session, const Command& command) {
  constexpr const char* kReady = "recording file-system events";
  SystemLog log(SystemLog::Echo::always);
  EventRecorder recorder(session.platform.threads, session.folders, log);
  if (!recorder.tryBegin()) {
    const int other = recorder.otherRecorder();
    throw CommandFailure(other == 0 ? "another process records events already"
                                    : fmt::format("process {} records events already", other));
  }
  const auto record = [&] {
    if (command.json) {
      printDocument(Json{{"event", "ready"}, {"message", kReady}});
      if (!flushOutput()) return;
    } else {
      warn(kReady);
    }
    recorder.run();
  };
  session.runner().run(record, [&] { recorder.stop(); });
  return 0;
}

}  // namespace quon::cli
