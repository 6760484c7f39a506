#include "journal/StateWatch.h"

#include <array>
#include <cerrno>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

#include "base/Text.h"

namespace quon {
namespace {

constexpr std::uint32_t kMask =
    IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;
constexpr std::size_t kBufferBytes = 4096;

}  // namespace

StateWatch::StateWatch(const std::string& folder) : notifier(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (!notifier.isOpen() || ::inotify_add_watch(notifier.get(), folder.c_str(), kMask) < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot watch " + displayText(folder));
  }
}

bool StateWatch::takeNews() {
  bool lasts = true;
  alignas(inotify_event) std::array<char, kBufferBytes> buffer{};
  for (ssize_t bytes = 0; (bytes = ::read(notifier.get(), buffer.data(), buffer.size())) > 0;) {
    for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
      const auto* event = reinterpret_cast<const inotify_event*>(&buffer[at]);
      at += sizeof(inotify_event) + event->len;
      if ((event->mask & kGone) != 0) lasts = false;
    }
  }
  return lasts;
}

}  // namespace quon
