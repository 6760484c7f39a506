#include "journal/StateWatch.h"

#include <array>
#include <cerrno>
#include <string_view>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

#include "base/Text.h"
#include "events/EventJournal.h"
#include "journal/StateFolder.h"

namespace quon {
namespace {

constexpr std::uint32_t kFolderMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::size_t kBufferBytes = 4096;

const char* nameOf(StateWatch::Bell bell) {
  return bell == StateWatch::Bell::clients ? "journal.bell" : "recorder.bell";
}

[[noreturn]] void raise(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

StateWatch::StateWatch(std::string watched, Bell listenTo)
    : folder(std::move(watched)),
      bellName(nameOf(listenTo)),
      notifier(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!notifier.isOpen()) raise("cannot watch " + displayText(folder));
  folderWatch = ::inotify_add_watch(notifier.get(), folder.c_str(), kFolderMask);
  if (folderWatch < 0) raise("cannot watch " + displayText(folder));
  watchBell();
}

void StateWatch::watchBell() {
  const std::string path = folder + "/" + bellName;
  (void)openStateFile(path);
  bellWatch = ::inotify_add_watch(notifier.get(), path.c_str(), IN_MODIFY);
  // Removed again at once: the watch on the folder reports that, and the bell is made anew.
  if (bellWatch < 0 && errno != ENOENT) raise("cannot watch " + displayText(path));
}

StateWatch::News StateWatch::read() {
  News news;
  bool bellReplaced = false;
  alignas(inotify_event) std::array<char, kBufferBytes> buffer{};
  for (ssize_t bytes = 0; (bytes = ::read(notifier.get(), buffer.data(), buffer.size())) > 0;) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
      const auto* event = reinterpret_cast<const inotify_event*>(&buffer[at]);
      at += sizeof(inotify_event) + event->len;
      const std::string_view name = event->len > 0 ? std::string_view(event->name) : std::string_view();
      if ((event->mask & IN_Q_OVERFLOW) != 0) {
        news.rung = news.journalReplaced = news.lockReplaced = bellReplaced = true;
      } else if (event->wd == bellWatch) {
        if ((event->mask & IN_MODIFY) != 0) news.rung = true;
      } else if (event->wd == folderWatch && name.empty()) {
        news.folderGone = true;
      } else if (name == bellName) {
        bellReplaced = true;
      } else if (name == EventJournal::fileName()) {
        news.journalReplaced = true;
      } else if (name == "recorder.lock") {
        news.lockReplaced = true;
      }
    }
  }
  if (bellReplaced && !news.folderGone) {
    // Whoever rang the old one may not have been heard.
    watchBell();
    news.rung = true;
  }
  return news;
}

void StateWatch::ring(const std::string& folder, Bell bell) {
  const std::string path = folder + "/" + nameOf(bell);
  const Descriptor file = openStateFile(path);
  if (::pwrite(file.get(), "!", 1, 0) != 1) raise("cannot write " + displayText(path));
}

}  // namespace quon
