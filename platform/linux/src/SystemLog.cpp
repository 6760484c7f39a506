#include "platform_linux/SystemLog.h"

#include <string>
#include <syslog.h>
#include <unistd.h>

#include "base/Text.h"

namespace quon {

void SystemLog::line(std::string_view text) {
  const std::string shown = displayText(text);
  ::syslog(LOG_USER | LOG_NOTICE, "[quon] %s", shown.c_str());
  if (echo == Echo::never) return;
  if (echo == Echo::always || ::isatty(STDERR_FILENO) != 0) StandardErrorLog().line(text);
}

}  // namespace quon
