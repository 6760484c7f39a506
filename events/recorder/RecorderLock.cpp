// No descriptor becomes readable when a lock becomes free, so a thread blocks in flock. It is interrupted by
// SIGURG, which is ignored unless somebody handles it, with a handler that does nothing. A signal that comes
// just before the call begins is lost, so that it is sent again until the call has returned.
#include "recorder/RecorderLock.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/Text.h"
#include "journal/StateFolder.h"

namespace quon {
namespace {

constexpr int kWakeSignal = SIGURG;
constexpr std::chrono::milliseconds kSignalAgain{5};

/// Installs the handler unless the program has one of its own, which serves as well.
void handleWakeSignal() {
  struct sigaction present {};
  sigaction(kWakeSignal, nullptr, &present);
  if ((present.sa_flags & SA_SIGINFO) == 0 &&
      (present.sa_handler == SIG_DFL || present.sa_handler == SIG_IGN)) {
    struct sigaction wake {};
    wake.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(kWakeSignal, &wake, nullptr);
  }
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, kWakeSignal);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

std::string lockFile(const std::string& stateFolder) {
  return stateFolder + "/recorder.lock";
}

}  // namespace

RecorderLock::RecorderLock(const std::string& stateFolder) : path(lockFile(stateFolder)) {}

bool RecorderLock::take(int operation) {
  while (!interrupted) {
    ensureStateFolder(path.substr(0, path.rfind('/')));
    file = openStateFile(path);
    if (::flock(file.get(), operation) != 0) {
      if (errno == EINTR) continue;
      if (errno == EWOULDBLOCK) return false;
      throw std::system_error(errno, std::generic_category(), "cannot lock " + displayText(path));
    }
    if (!isCurrent()) continue;
    const std::string text = std::to_string(::getpid()) + "\n";
    // Only for the message of another recorder.
    if (::ftruncate(file.get(), 0) == 0) (void)!::pwrite(file.get(), text.data(), text.size(), 0);
    return true;
  }
  return false;
}

bool RecorderLock::tryTake() {
  const bool taken = take(LOCK_EX | LOCK_NB);
  if (!taken) file = Descriptor();
  return taken;
}

bool RecorderLock::wait() {
  handleWakeSignal();
  {
    MutexLock held(lock);
    waiting = true;
    waiter = pthread_self();
  }
  const auto end = [this] {
    MutexLock held(lock);
    waiting = false;
    ended.broadcast();
  };
  try {
    const bool taken = take(LOCK_EX);
    end();
    return taken;
  } catch (...) {
    end();
    throw;
  }
}

void RecorderLock::interrupt() {
  interrupted = true;
  MutexLock held(lock);
  while (waiting) {
    pthread_kill(waiter, kWakeSignal);
    ended.waitUntil(lock, std::chrono::steady_clock::now() + kSignalAgain);
  }
}

void RecorderLock::release() {
  file = Descriptor();
}

bool RecorderLock::isCurrent() const {
  struct stat held {};
  struct stat named {};
  return file.isOpen() && ::fstat(file.get(), &held) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

int RecorderLock::lastOwner(const std::string& stateFolder) {
  const Descriptor opened(::open(lockFile(stateFolder).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  std::string text(16, '\0');
  const ssize_t bytes = opened.isOpen() ? ::read(opened.get(), text.data(), text.size()) : -1;
  int process = 0;
  if (bytes > 0) std::from_chars(text.data(), text.data() + bytes, process);
  return process;
}

}  // namespace quon
