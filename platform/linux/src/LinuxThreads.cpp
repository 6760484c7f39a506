#include "platform_linux/LinuxThreads.h"

#include <exception>
#include <new>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <system_error>

#include "base/Fatal.h"

namespace quon {
namespace {

constexpr std::size_t kLongestName = 15;

struct Start {
  std::string name;
  std::function<void()> body;
};

void* runBody(void* argument) {
  const std::unique_ptr<Start> start(static_cast<Start*>(argument));
  pthread_setname_np(pthread_self(), start->name.c_str());
  try {
    start->body();
  } catch (const std::bad_alloc&) {
    endOutOfMemory();
  } catch (const std::exception& failure) {
    fatal(start->name + ": " + failure.what());
  }
  return nullptr;
}

class LinuxThread final : public RunningThread {
 public:
  explicit LinuxThread(pthread_t started) : thread(started) {}
  LinuxThread(const LinuxThread&) = delete;
  LinuxThread& operator=(const LinuxThread&) = delete;
  ~LinuxThread() override { finish(); }
  void join() override { finish(); }

 private:
  void finish() {
    if (joined) return;
    joined = true;
    pthread_join(thread, nullptr);
  }

  pthread_t thread;
  bool joined = false;
};

class Attributes {
 public:
  Attributes() { pthread_attr_init(&value); }
  ~Attributes() { pthread_attr_destroy(&value); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  pthread_attr_t value{};
};

}  // namespace

std::unique_ptr<RunningThread> LinuxThreads::start(const std::string& name, std::size_t stackBytes,
                                                   std::function<void()> body) const {
  Attributes attributes;
  int status = pthread_attr_setstacksize(&attributes.value, stackBytes);
  if (status != 0)
    throw std::system_error(status, std::generic_category(), "cannot set the stack of " + name);
  auto start = std::make_unique<Start>(Start{name.substr(0, kLongestName), std::move(body)});
  pthread_t thread{};
  status = pthread_create(&thread, &attributes.value, runBody, start.get());
  if (status != 0) throw std::system_error(status, std::generic_category(), "cannot start thread " + name);
  (void)start.release();  // now the thread's
  return std::make_unique<LinuxThread>(thread);
}

void LinuxThreads::nameThisThread(const std::string& name) const {
  pthread_setname_np(pthread_self(), name.substr(0, kLongestName).c_str());
}

ThreadUse LinuxThreads::used() const {
  rusage usage{};
  if (::getrusage(RUSAGE_THREAD, &usage) != 0) return {};
  const auto time = [](const timeval& value) {
    return std::chrono::seconds(value.tv_sec) + std::chrono::microseconds(value.tv_usec);
  };
  return {.processor = time(usage.ru_utime) + time(usage.ru_stime),
          .waits = static_cast<std::uint64_t>(usage.ru_nvcsw)};
}

unsigned LinuxThreads::activeProcessors() const {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return 1;
  const int count = CPU_COUNT(&allowed);
  return count > 0 ? static_cast<unsigned>(count) : 1U;
}

}  // namespace quon
