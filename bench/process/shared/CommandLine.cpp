#include "shared/CommandLine.h"

#include <cerrno>
#include <cstdio>
#include <iostream>

#include "shared/SystemFailure.h"

namespace quon::bench {

std::optional<int> parseCommandLine(CLI::App& app, const Invocation& invocation) {
  try {
    app.parse(invocation.argc, invocation.argv);
    return std::nullopt;
  } catch (const CLI::Success& help) {
    const int status = app.exit(help);
    std::cout.flush();
    if (!std::cout) throw SystemFailure("writing", "standard output", errno);
    return status;
  } catch (const CLI::ParseError& error) {
    throw WrongUsage(error.what());
  }
}

void flushOutput() {
  if (std::fflush(stdout) != 0) throw SystemFailure("writing", "standard output", errno);
}

void complain(const char* program, const char* reason) noexcept {
  // A standard error that cannot be written leaves no place to say so; the exit status still does.
  static_cast<void>(std::fprintf(stderr, "%s: %s\n", program, reason));
}

}  // namespace quon::bench
