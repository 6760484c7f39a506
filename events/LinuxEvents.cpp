// Each stream has a connection and a thread of its own; other questions have a connection for as long as they
// are asked. The recorder of this process, if it has one, is a client's peer like that of any other process.
//
// A program that may record and finds nobody at it begins a thread: it becomes the recorder, or, when another
// one has been faster, waits in the kernel to be the next.
#include "events/LinuxEvents.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

#include "base/Log.h"
#include "base/Mutex.h"
#include "client/LiveStream.h"
#include "client/RecorderConnection.h"
#include "events/EventClock.h"
#include "events/EventRecorder.h"
#include "journal/JournalFile.h"
#include "journal/StateFolder.h"
#include "journal/StateWatch.h"
#include "platform/Threads.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 524288;
constexpr int kMostRecorders = 16;

/// Becomes readable once, for good. Threads: any.
class Signal {
 public:
  Signal() : descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!descriptor.isOpen())
      throw std::system_error(errno, std::generic_category(), "cannot wait for the recorder of changes");
  }
  void raise() const {
    const std::uint64_t one = 1;
    // An eventfd below its limit takes the write.
    (void)!::write(descriptor.get(), &one, sizeof one);
  }
  [[nodiscard]] int get() const { return descriptor.get(); }

 private:
  Descriptor descriptor;
};

}  // namespace

struct LinuxEvents::Service {
  class Stream;
  enum class Recording : std::uint8_t { no, beginning, settled, failed };

  Service(const ThreadService& service, Folders given, Log& lines, const EventOptions& how)
      : threads(service), folders(std::move(given)), log(lines), options(how) {}
  ~Service();

  [[nodiscard]] std::uint64_t now() const {
    return (options.clock == nullptr ? systemClock : *options.clock).wallMicros();
  }
  /// Has this process record, or wait to be the next that does. Returns "" or why it cannot.
  [[nodiscard]] std::string beginRecording();
  void record(EventRecorder& begun);
  void settle(Recording outcome, const std::string& reason);
  [[nodiscard]] bool isNews(const std::string& reason);
  /// Connects to the recorder; becomes one where there is none and this process may. None, with a reason or
  /// "", when nobody records: at once or, to wait for another process that is about to, when that is stopped.
  /// Throws std::system_error.
  [[nodiscard]] std::optional<RecorderConnection> connect(CoverMode mode, const std::stop_token& stopped,
                                                          std::string& reason);
  [[nodiscard]] std::optional<RecorderConnection> waitForRecorder(const std::stop_token& stopped,
                                                                  std::string& reason);
  [[nodiscard]] Coverage cover(const std::string& root, CoverMode mode, const std::stop_token& stopped);
  /// The recorder's; none when nobody records.
  [[nodiscard]] std::optional<std::uint64_t> issuedId() const;
  void remember(const std::shared_ptr<LiveStream>& stream);
  void closeStreams();

  const ThreadService& threads;
  const Folders folders;
  Log& log;
  const EventOptions options;
  const SystemEventClock systemClock;

  Mutex lock;
  Condition changed;
  Recording recording QUON_GUARDED_BY(lock) = Recording::no;
  std::string failure QUON_GUARDED_BY(lock);
  std::shared_ptr<Signal> over QUON_GUARDED_BY(lock);  ///< the recording that was begun last has failed
  std::unique_ptr<EventRecorder> recorder QUON_GUARDED_BY(lock);
  std::unique_ptr<RunningThread> thread QUON_GUARDED_BY(lock);
  std::vector<std::weak_ptr<LiveStream>> streams QUON_GUARDED_BY(lock);
  std::uint64_t lastId QUON_GUARDED_BY(lock) = 0;
};

class LinuxEvents::Service::Stream final : public EventStream {
 public:
  Stream(Service& owner, std::shared_ptr<LiveStream> stream) : service(owner), live(std::move(stream)) {}
  ~Stream() override { Stream::stop(); }

  bool start() override {
    try {
      std::string reason;
      // A program that stays has its root recorded.
      if (service.options.mayRecord) (void)service.cover(live->request.root, CoverMode::ask, {});
      auto connection = service.connect(CoverMode::ask, {}, reason);
      if (connection) {
        live->begin(service.threads, std::move(*connection));
      } else if (reason.empty()) {
        live->lose("no program recorded changes");
      }
      return reason.empty();
    } catch (const std::system_error& failure) {
      service.log.line(fmt::format("no file-system events: {}", failure.what()));
      return false;
    }
  }
  void stop() override { live->close(); }

 private:
  Service& service;  // only start() uses it
  std::shared_ptr<LiveStream> live;
};

LinuxEvents::Service::~Service() {
  std::unique_ptr<RunningThread> ending;
  {
    const MutexLock held(lock);
    if (recorder) recorder->stop();
    ending = std::move(thread);
  }
  if (ending) ending->join();
}

void LinuxEvents::Service::remember(const std::shared_ptr<LiveStream>& stream) {
  const MutexLock held(lock);
  std::erase_if(streams, [](const auto& each) { return each.expired(); });
  streams.push_back(stream);
}

void LinuxEvents::Service::closeStreams() {
  std::vector<std::weak_ptr<LiveStream>> closing;
  {
    const MutexLock held(lock);
    closing.swap(streams);
  }
  for (const auto& each : closing) {
    if (const auto stream = each.lock()) stream->close();
  }
}

std::string LinuxEvents::Service::beginRecording() {
  const MutexLock held(lock);
  if (recording == Recording::failed) {
    thread->join();  // it has nothing left to do
    thread.reset();
    recording = Recording::no;
  }
  if (recording == Recording::no) {
    over = std::make_shared<Signal>();
    recorder = std::make_unique<EventRecorder>(threads, folders, log, options);
    thread = threads.start("quon-recorder", kStackBytes, [this, begun = recorder.get()] { record(*begun); });
    recording = Recording::beginning;
  }
  while (recording == Recording::beginning) changed.wait(lock);
  return recording == Recording::failed ? failure : std::string();
}

void LinuxEvents::Service::record(EventRecorder& begun) {
  try {
    const bool isFirst = begun.tryBegin();
    settle(Recording::settled, {});
    if (isFirst || begun.waitToBegin()) begun.run();
  } catch (const std::runtime_error& reason) {
    settle(Recording::failed, reason.what());
  }
}

bool LinuxEvents::Service::isNews(const std::string& reason) {
  const MutexLock held(lock);
  return failure != reason;
}

void LinuxEvents::Service::settle(Recording outcome, const std::string& reason) {
  // The same failure, seen again when somebody else asks, is logged once.
  if (outcome == Recording::failed && isNews(reason))
    log.line(fmt::format("file-system changes cannot be recorded: {}", reason));
  const MutexLock held(lock);
  recording = outcome;
  failure = reason;
  if (outcome == Recording::failed) over->raise();
  changed.broadcast();
}

std::optional<RecorderConnection> LinuxEvents::Service::connect(CoverMode mode,
                                                                const std::stop_token& stopped,
                                                                std::string& reason) {
  auto connection = RecorderConnection::open(folders.state);
  if (connection || !options.mayRecord) return connection;
  reason = beginRecording();
  if (!reason.empty()) return std::nullopt;
  connection = RecorderConnection::open(folders.state);
  if (connection || mode == CoverMode::ask) return connection;
  return waitForRecorder(stopped, reason);
}

std::optional<RecorderConnection> LinuxEvents::Service::waitForRecorder(const std::stop_token& stopped,
                                                                        std::string& reason) {
  StateWatch watch(folders.state);
  const Signal stop;
  const std::stop_callback raise(stopped, [&] { stop.raise(); });
  while (!stopped.stop_requested()) {
    if (auto connection = RecorderConnection::open(folders.state)) return connection;
    std::shared_ptr<Signal> failed;
    {
      const MutexLock held(lock);
      if (recording == Recording::failed) reason = failure;
      failed = over;
    }
    if (!reason.empty()) break;
    std::array<pollfd, 3> waits{
        {{watch.descriptor(), POLLIN, 0}, {stop.get(), POLLIN, 0}, {failed->get(), POLLIN, 0}}};
    ::poll(waits.data(), waits.size(), -1);
    if (!watch.takeNews()) {
      ensureStateFolder(folders.state);
      watch = StateWatch(folders.state);
    }
  }
  return std::nullopt;
}

Coverage LinuxEvents::Service::cover(const std::string& root, CoverMode mode,
                                     const std::stop_token& stopped) {
  // A recorder that ends is followed by another one, or by this process; not for ever.
  for (int attempt = 0; attempt < kMostRecorders; ++attempt) {
    if (stopped.stop_requested()) return {};
    std::string reason;
    auto connection = connect(mode, stopped, reason);
    if (!connection) return {.reason = reason};
    const std::stop_callback ending(stopped, [&] { connection->shutDown(); });
    connection->send(CoverRequest{.root = root, .wait = mode == CoverMode::wait});
    const auto reply = connection->receive();
    if (reply) {
      if (const auto* coverage = std::get_if<Coverage>(&*reply)) return *coverage;
      if (const auto* refusal = std::get_if<Refusal>(&*reply)) return {.reason = refusal->reason};
      return {.reason = "the recorder of changes is of another version of quon"};
    }
    if (mode == CoverMode::ask || !options.mayRecord) return {};
  }
  return {.reason = "the recorder of changes ends the connection whenever it is asked"};
}

std::optional<std::uint64_t> LinuxEvents::Service::issuedId() const {
  auto connection = RecorderConnection::open(folders.state);
  if (!connection) return std::nullopt;
  connection->send(IdRequest{});
  const auto reply = connection->receive();
  const auto* issued = reply ? std::get_if<IssuedId>(&*reply) : nullptr;
  return issued == nullptr ? std::nullopt : std::optional(issued->id);
}

LinuxEvents::LinuxEvents(const ThreadService& threads, Folders folders, Log& log, EventOptions options)
    : service(std::make_unique<Service>(threads, std::move(folders), log, options)) {}

LinuxEvents::~LinuxEvents() {
  service->closeStreams();
}

std::unique_ptr<EventStream> LinuxEvents::create(const EventRequest& request, BackgroundQueue& queue,
                                                 Callback callback) {
  auto live = std::make_shared<LiveStream>(request, queue, std::move(callback));
  service->remember(live);
  return std::make_unique<Service::Stream>(*service, std::move(live));
}

std::uint64_t LinuxEvents::currentEventId() {
  std::optional<std::uint64_t> issued;
  try {
    issued = service->issuedId();
  } catch (const std::system_error& failure) {
    service->log.line(failure.what());
  }
  // Without a recorder nothing is handed out; a recorder before may have been ahead of the clock.
  const std::uint64_t id =
      issued ? *issued : std::max(service->now(), JournalFile::newestIdIn(service->folders.state));
  const MutexLock held(service->lock);
  service->lastId = std::max(service->lastId, id);
  return service->lastId;
}

Coverage LinuxEvents::cover(const std::string& root, CoverMode mode, std::stop_token stopped) {
  try {
    return service->cover(root, mode, stopped);
  } catch (const std::system_error& failure) {
    service->log.line(failure.what());
    return {.reason = failure.what()};
  }
}

}  // namespace quon
