// The signals are blocked everywhere and read from a signalfd by one thread, which also waits on an eventfd
// that the destructor uses to end it.
#include "platform_linux/Interrupts.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "linux_fs/Descriptor.h"
#include "platform_linux/LinuxThreads.h"

namespace quon {
namespace {

constexpr std::size_t kListenerStack = std::size_t{256} * 1024;

/// Without those that whoever started the program wants ignored, as nohup does.
sigset_t interruptSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    if (::sigaction(signal, nullptr, &present) == 0 && present.sa_handler != SIG_IGN) {
      sigaddset(&signals, signal);
    }
  }
  return signals;
}

Descriptor opened(int number, const char* what) {
  if (number < 0) throw std::system_error(errno, std::generic_category(), what);
  return Descriptor(number);
}

}  // namespace

struct Interrupts::Listener {
  explicit Listener(std::function<void()> callback) : onInterrupt(std::move(callback)) {}

  void listen() const {
    std::array<pollfd, 2> waits{{{signals.get(), POLLIN, 0}, {ending.get(), POLLIN, 0}}};
    while (true) {
      if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return;
      if ((waits[1].revents & POLLIN) != 0) return;
      signalfd_siginfo info{};
      if ((waits[0].revents & POLLIN) != 0 && ::read(signals.get(), &info, sizeof info) == sizeof info) {
        onInterrupt();
      }
    }
  }

  std::function<void()> onInterrupt;
  sigset_t before{};
  Descriptor signals;
  Descriptor ending;
  std::unique_ptr<RunningThread> thread;
};

Interrupts::Interrupts(std::function<void()> onInterrupt)
    : listener(std::make_unique<Listener>(std::move(onInterrupt))) {
  const sigset_t signals = interruptSignals();
  listener->signals = opened(signalfd(-1, &signals, SFD_CLOEXEC), "cannot listen for signals");
  listener->ending = opened(eventfd(0, EFD_CLOEXEC), "cannot listen for signals");
  pthread_sigmask(SIG_BLOCK, &signals, &listener->before);
  listener->thread =
      LinuxThreads().start("quon-signals", kListenerStack, [state = listener.get()] { state->listen(); });
}

Interrupts::~Interrupts() {
  const std::uint64_t one = 1;
  // The write of 8 bytes to an eventfd below its limit cannot fail.
  if (::write(listener->ending.get(), &one, sizeof one) == sizeof one) listener->thread->join();
  pthread_sigmask(SIG_SETMASK, &listener->before, nullptr);
}

void leaveNow(int status) {
  ::_exit(status);
}

}  // namespace quon
