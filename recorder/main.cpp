// quon-recorder: records file-system changes below the folders that quon's programs have asked for, so that
// these find out at once what changed while none of them ran.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

#include <CLI/CLI.hpp>

#include "base/Text.h"
#include "events/EventRecorder.h"
#include "linux_fs/Descriptor.h"
#include "platform_linux/Interrupts.h"
#include "platform_linux/LinuxPlatform.h"
#include "platform_linux/LinuxThreads.h"
#include "platform_linux/SystemLog.h"

namespace {

using namespace quon;

constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct Options {
  bool wait = false;
  std::string backEnd = "auto";
};

EventBackEnd backEndNamed(const std::string& name) {
  if (name == "inotify") return EventBackEnd::inotify;
  return name == "fanotify" ? EventBackEnd::fanotify : EventBackEnd::automatic;
}

/// The exit status when the program is not to go on, -1 when it is.
int parse(int count, char** arguments, Options& options) {
  CLI::App app("Records file-system changes for quon, in the foreground, until SIGTERM or SIGINT.",
               "quon-recorder");
  app.set_version_flag("--version", "quon-recorder " QUON_VERSION);
  app.add_flag("--wait", options.wait, "wait while another recorder is at work, instead of failing");
  app.add_option("--backend", options.backEnd,
                 "auto, inotify (a watch on every folder) or fanotify (needs privilege)")
      ->check(CLI::IsMember({"auto", "inotify", "fanotify"}).description(""))
      ->option_text("NAME");
  try {
    app.parse(count, arguments);
  } catch (const CLI::ParseError& failure) {
    return app.exit(failure) == 0 ? 0 : kUsage;
  }
  return -1;
}

/// For the service manager (see sd_notify(3)): from now on requests are answered. Without one nothing happens.
void notifyReady() {
  const char* const path = std::getenv("NOTIFY_SOCKET");  // NOLINT(concurrency-mt-unsafe): nothing sets it
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string_view name = path == nullptr ? "" : path;
  if (name.empty() || name.size() >= sizeof address.sun_path) return;
  name.copy(address.sun_path, name.size());
  if (name.front() == '@') address.sun_path[0] = '\0';  // a name that is in no folder
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
  constexpr std::string_view kReady = "READY=1";
  // A manager that does not take it ends the service by its own time limit, and says so.
  (void)::sendto(socket.get(), kReady.data(), kReady.size(), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), length);
}

bool begin(EventRecorder& recorder, const Options& options) {
  if (recorder.tryBegin()) return true;
  const int other = recorder.otherRecorder();
  const std::string process = other == 0 ? std::string() : fmt::format(" (process {})", other);
  if (!options.wait) {
    fmt::print(stderr, "quon-recorder: another recorder is at work{}\n", process);
    return false;
  }
  fmt::print("waiting for another recorder to end{}\n", process);
  std::fflush(stdout);
  return recorder.waitToBegin();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    Options options;
    if (const int status = parse(count, arguments, options); status >= 0) return status;
    LinuxPlatform::ignoreFileSizeSignal();
    LinuxPlatform::raiseOpenFileLimit();
    const Folders folders = LinuxPlatform::folders();
    SystemLog log(SystemLog::Echo::onTerminal);
    const LinuxThreads threads;
    EventRecorder recorder(threads, folders, log, {.backEnd = backEndNamed(options.backEnd)});
    bool interrupted = false;
    const Interrupts interrupts([&] {
      interrupted = true;
      recorder.stop();
    });
    if (!begin(recorder, options)) return interrupted ? 0 : kFailed;
    notifyReady();
    fmt::print("recording file-system changes in {}\n", displayText(folders.state));
    std::fflush(stdout);
    recorder.run();
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "quon-recorder: %s\n", failure.what());
    return kFailed;
  }
}
