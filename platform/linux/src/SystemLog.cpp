#include "platform_linux/SystemLog.h"

#include <cstdio>
#include <syslog.h>
#include <unistd.h>

namespace quon {

void SystemLog::line(std::string_view text) {
  const int length = static_cast<int>(text.size());
  syslog(LOG_USER | LOG_NOTICE, "[quon] %.*s", length, text.data());
  if (isatty(STDERR_FILENO) != 0) std::fprintf(stderr, "[quon] %.*s\n", length, text.data());
}

}  // namespace quon
