#include "compare/Interrupt.h"

#include <cerrno>
#include <csignal>

#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

void rememberInterrupts() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupted = 1; };
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) {
    if (::sigaction(signal, &action, nullptr) != 0) throw SystemFailure("handling", "a signal", errno);
  }
}

bool wasInterrupted() {
  return interrupted != 0;
}

}  // namespace quon::bench
