#include "support/Shell.h"

#include <cstdlib>

namespace quon::test {
namespace {

std::string quoted(const std::string& word) {
  std::string text = "'";
  for (const char byte : word) text += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
  return text + "'";
}

}  // namespace

bool shell(const std::string& commands, const std::vector<std::string>& arguments) {
  std::string line = "set -e; set --";
  for (const std::string& argument : arguments) line += " " + quoted(argument);
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  return std::system((line + "; exec >&2; " + commands).c_str()) == 0;
}

}  // namespace quon::test
