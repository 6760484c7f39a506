#include "platform_linux/LinuxTerminal.h"

#include <charconv>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace quon {
namespace {

constexpr std::size_t kUncut = 1'000'000;

std::size_t columnsFromEnvironment() {
  const char* text = std::getenv("COLUMNS");  // NOLINT(concurrency-mt-unsafe): read before any thread starts
  if (text == nullptr) return 0;
  const std::string_view digits = text;
  std::size_t columns = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), columns);
  return columns;
}

}  // namespace

Terminal Terminal::detect() {
  Terminal terminal;
  terminal.outputIsTerminal = isatty(STDOUT_FILENO) != 0;
  terminal.errorIsTerminal = isatty(STDERR_FILENO) != 0;
  const char* noColour = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): as above
  terminal.colour = terminal.outputIsTerminal && (noColour == nullptr || *noColour == '\0');
  winsize size{};
  std::size_t columns = columnsFromEnvironment();
  if (terminal.outputIsTerminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    columns = size.ws_col;
  }
  // What is not read by eye is cut by nobody.
  if (columns == 0 && !terminal.outputIsTerminal) columns = kUncut;
  if (columns > 0) terminal.columns = columns;
  return terminal;
}

}  // namespace quon
