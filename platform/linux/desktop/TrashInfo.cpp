#include "TrashInfo.h"

#include <algorithm>
#include <fcntl.h>
#include <glib.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Path.h"
#include "linux_fs/Descriptor.h"

namespace quon {
namespace {

constexpr const char* kGroup = "Trash Info";

struct Free {
  void operator()(char* text) const { g_free(text); }
  void operator()(GKeyFile* file) const { g_key_file_unref(file); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(GDateTime* time) const { g_date_time_unref(time); }
  void operator()(GTimeZone* zone) const { g_time_zone_unref(zone); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

Owned<char> valueOf(GKeyFile* file, const char* key) {
  return Owned<char>(g_key_file_get_value(file, kGroup, key, nullptr));
}

/// The beginning of a regular file, which is all of any record; "" for what is none. A disk may come from anyone: a
/// pipe would be waited for, a link would lead elsewhere.
std::string recordIn(const std::string& file) {
  constexpr std::size_t kMost = 65536;
  const Descriptor opened(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  struct stat found {};
  if (!opened.isOpen() || ::fstat(opened.get(), &found) != 0 || !S_ISREG(found.st_mode)) return "";
  std::string text(kMost, '\0');
  const ssize_t bytes = ::read(opened.get(), text.data(), text.size());
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(bytes, 0)));
  return text;
}

std::int64_t secondsOf(const char* localTime) {
  const Owned<GTimeZone> zone(g_time_zone_new_local());
  const Owned<GDateTime> time(localTime == nullptr ? nullptr : g_date_time_new_from_iso8601(localTime, zone.get()));
  return time ? g_date_time_to_unix(time.get()) : 0;
}

}  // namespace

std::string topOfTrash(std::string_view trash, std::string_view homeTrash) {
  if (trash == homeTrash) return "";
  // TOP/.Trash-1000 or TOP/.Trash/1000
  const std::string_view above = parentPath(trash);
  return std::string(lastComponent(above) == ".Trash" ? parentPath(above) : above);
}

std::string infoFileOf(std::string_view trash, std::string_view name) {
  return joinPath(joinPath(trash, "info"), std::string(name) + ".trashinfo");
}

std::optional<TrashInfo> readTrashInfo(const std::string& file, const std::string& top) {
  const std::string text = recordIn(file);
  const Owned<GKeyFile> keys(g_key_file_new());
  if (g_key_file_load_from_data(keys.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr) == FALSE) return std::nullopt;
  const Owned<char> escaped = valueOf(keys.get(), "Path");
  if (!escaped || *escaped == '\0') return std::nullopt;
  const Owned<char> path(g_uri_unescape_string(escaped.get(), nullptr));
  if (!path) return std::nullopt;
  const bool isAbsolute = *path == '/';
  return TrashInfo{isAbsolute || top.empty() ? std::string(path.get()) : joinPath(pathPrefix(top), path.get()),
                   secondsOf(valueOf(keys.get(), "DeletionDate").get())};
}

std::string writeTrashInfo(const std::string& file, const std::string& top, const std::string& originalPath) {
  const auto below = top.empty() ? std::nullopt : relativeTo(originalPath, top);
  const std::string recorded(below ? *below : originalPath);
  const Owned<char> path(g_uri_escape_string(recorded.c_str(), "/", FALSE));
  const Owned<GDateTime> now(g_date_time_new_now_local());
  const Owned<char> time(g_date_time_format(now.get(), "%Y-%m-%dT%H:%M:%S"));
  const std::string text =
      std::string("[") + kGroup + "]\nPath=" + path.get() + "\nDeletionDate=" + time.get() + "\n";
  GError* raised = nullptr;
  const bool isWritten = g_file_set_contents_full(file.c_str(), text.data(), static_cast<gssize>(text.size()),
                                                  G_FILE_SET_CONTENTS_CONSISTENT, S_IRUSR | S_IWUSR, &raised) != FALSE;
  const Owned<GError> error(raised);
  return isWritten ? "" : error->message;
}

}  // namespace quon
