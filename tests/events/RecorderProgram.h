#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "EventHome.h"
#include "linux_fs/Descriptor.h"

namespace quon::test {

/// The program quon-recorder, with the home's folders. Killed at the end if it still runs.
class RecorderProgram {
 public:
  explicit RecorderProgram(const EventHome& home, std::vector<std::string> arguments = {});
  ~RecorderProgram();
  RecorderProgram(const RecorderProgram&) = delete;
  RecorderProgram& operator=(const RecorderProgram&) = delete;

  /// The next line of its output; "" at the end.
  [[nodiscard]] std::string line() const;
  /// Keeps it from running.
  void stop() const;
  /// Sends the signal, if any, and waits: the exit status, or minus the signal that ended it.
  int end(int signal = 0);

 private:
  pid_t child = -1;
  Descriptor output;
};

}  // namespace quon::test
