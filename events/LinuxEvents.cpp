// Two threads, begun with the first stream: one reads the journal for the streams of this process, the other
// waits to become the user's recorder, and records once it is. Both are woken by descriptors, or a lock, and
// ended in reverse.
#include "events/LinuxEvents.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fmt/format.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/Log.h"
#include "base/Mutex.h"
#include "events/EventRecorder.h"
#include "journal/JournalReader.h"
#include "platform/Threads.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 524288;

}  // namespace

struct LinuxEvents::Service {
  /// Outlives the service where streams do.
  struct Shared {
    Shared() : wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
      if (!wake.isOpen())
        throw std::system_error(errno, std::generic_category(), "cannot make an event journal");
    }
    void wakeReader() const {
      const std::uint64_t one = 1;
      // An eventfd below its limit takes the write.
      (void)!::write(wake.get(), &one, sizeof one);
    }
    [[nodiscard]] JournalReader::Streams present() {
      MutexLock held(lock);
      return streams;
    }
    /// For all streams: nothing can be known any more.
    void fail() {
      failed = true;
      for (const auto& stream : present()) {
        stream->deliver(
            {{.path = stream->request.root, .flags = EventFlag::userDropped, .id = stream->request.since},
             {.path = stream->request.root, .flags = EventFlag::historyDone, .id = stream->request.since}});
      }
    }

    Descriptor wake;
    std::atomic<bool> ended{false};
    std::atomic<bool> failed{false};
    Mutex lock;
    JournalReader::Streams streams QUON_GUARDED_BY(lock);
  };

  class Stream;

  Service(const ThreadService& service, Folders given, Log& lines, const EventOptions& how)
      : threads(service), folders(std::move(given)), log(lines), options(how) {}

  ~Service() {
    shared->ended = true;
    if (recorder) recorder->stop();
    shared->wakeReader();
    if (recorderThread) recorderThread->join();
    if (readerThread) readerThread->join();
  }

  [[nodiscard]] std::uint64_t now() const {
    return (options.clock == nullptr ? systemClock : *options.clock).wallMicros();
  }

  /// False, with a line in the log, when there is no reading the journal.
  [[nodiscard]] bool begin();
  void record();
  void read();

  const ThreadService& threads;
  const Folders folders;
  Log& log;
  const EventOptions options;
  const SystemEventClock systemClock;
  const std::shared_ptr<Shared> shared = std::make_shared<Shared>();
  Mutex lock;
  std::uint64_t lastId QUON_GUARDED_BY(lock) = 0;
  bool begun QUON_GUARDED_BY(lock) = false;
  std::unique_ptr<JournalReader> reader;
  std::unique_ptr<EventRecorder> recorder;
  std::unique_ptr<RunningThread> readerThread;
  std::unique_ptr<RunningThread> recorderThread;
};

class LinuxEvents::Service::Stream final : public EventStream {
 public:
  Stream(Service& owner, std::shared_ptr<LiveStream> stream)
      : service(owner), shared(owner.shared), live(std::move(stream)) {}
  ~Stream() override { Stream::stop(); }

  bool start() override {
    {
      MutexLock held(shared->lock);
      shared->streams.push_back(live);
    }
    if (service.begin() && !shared->failed) {
      shared->wakeReader();
      return true;
    }
    stop();
    return false;
  }

  void stop() override {
    {
      MutexLock held(shared->lock);
      std::erase(shared->streams, live);
    }
    live->close();
    shared->wakeReader();
  }

 private:
  Service& service;  // only start() uses it
  std::shared_ptr<Shared> shared;
  std::shared_ptr<LiveStream> live;
};

bool LinuxEvents::Service::begin() {
  MutexLock held(lock);
  if (begun) return true;
  try {
    reader = std::make_unique<JournalReader>(folders.state, log, shared->wake.get());
    if (options.mayRecord) {
      recorder = std::make_unique<EventRecorder>(threads, folders, log, options);
      recorderThread = threads.start("quon-recorder", kStackBytes, [this] { record(); });
    }
    readerThread = threads.start("quon-events", kStackBytes, [this] { read(); });
    begun = true;
  } catch (const std::runtime_error& failure) {
    log.line(fmt::format("no file-system events: {}", failure.what()));
  }
  return begun;
}

void LinuxEvents::Service::record() {
  try {
    if (recorder->waitToBegin()) recorder->run();
  } catch (const std::runtime_error& failure) {
    log.line(fmt::format("the recording of file-system events has ended: {}", failure.what()));
    shared->fail();
  }
}

void LinuxEvents::Service::read() {
  try {
    while (!shared->ended) {
      reader->serve(shared->present());
      reader->wait();
    }
  } catch (const std::runtime_error& failure) {
    log.line(fmt::format("the reading of file-system events has ended: {}", failure.what()));
    shared->fail();
  }
}

LinuxEvents::LinuxEvents(const ThreadService& threads, Folders folders, Log& log, EventOptions options)
    : service(std::make_unique<Service>(threads, std::move(folders), log, options)) {}

LinuxEvents::~LinuxEvents() {
  for (const auto& stream : service->shared->present()) stream->close();
}

std::unique_ptr<EventStream> LinuxEvents::create(const EventRequest& request, BackgroundQueue& queue,
                                                 Callback callback) {
  try {
    // Now rather than when a stream waits for it: a folder that cannot be written to is found here.
    (void)EventJournal::open(service->folders.state, service->log);
  } catch (const std::runtime_error& failure) {
    service->log.line(fmt::format("no event journal: {}", failure.what()));
    return nullptr;
  }
  return std::make_unique<Service::Stream>(*service,
                                           std::make_shared<LiveStream>(request, queue, std::move(callback)));
}

std::uint64_t LinuxEvents::currentEventId() {
  const std::uint64_t recorded = EventJournal::newestIdIn(service->folders.state);
  MutexLock held(service->lock);
  service->lastId = std::max({service->lastId + 1, service->now(), recorded});
  return service->lastId;
}

Coverage LinuxEvents::cover(const std::string& /*root*/, CoverMode /*mode*/, std::stop_token /*stopped*/) {
  return {.since = 1};
}

}  // namespace quon
