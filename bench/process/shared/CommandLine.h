#pragma once

#include <optional>
#include <stdexcept>

#include <CLI/CLI.hpp>

namespace quon::bench {

/// What main returns.
enum ExitStatus : int { exitDone = 0, exitFailed = 1, exitWrongUsage = 2, exitInterrupted = 130 };

/// A wrong argument that only the program itself can detect.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A program's name, what its help says of it, and the arguments of main.
struct Invocation {
  const char* name;
  const char* description;
  int argc;
  char** argv;
};

/// Parses into what `app` is bound to. An exit status when that is all there is to do: help was asked for and
/// printed. Throws WrongUsage.
[[nodiscard]] std::optional<int> parseCommandLine(CLI::App& app, const Invocation& invocation);

/// Throws when something printed could not be written.
void flushOutput();

/// Prints one line on standard error.
void complain(const char* program, const char* reason) noexcept;

/// A whole main: `define` binds the options to Arguments, `body` does the work and returns the exit status.
/// Wrong usage and failures become one line on standard error and their exit status. Threads: main only.
template <typename Arguments>
[[nodiscard]] int runCommand(const Invocation& invocation, void (*define)(CLI::App&, Arguments&),
                             int (*body)(const Arguments&)) noexcept {
  try {
    CLI::App app(invocation.description, invocation.name);
    Arguments arguments;
    define(app, arguments);
    if (const std::optional<int> status = parseCommandLine(app, invocation)) return *status;
    const int status = body(arguments);
    flushOutput();
    return status;
  } catch (const WrongUsage& error) {
    complain(invocation.name, error.what());
    return exitWrongUsage;
  } catch (const std::exception& error) {
    complain(invocation.name, error.what());
    return exitFailed;
  } catch (...) {
    complain(invocation.name, "failed for an unknown reason");
    return exitFailed;
  }
}

}  // namespace quon::bench
