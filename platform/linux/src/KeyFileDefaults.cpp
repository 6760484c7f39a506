#include "platform_linux/KeyFileDefaults.h"

#include <glib.h>
#include <memory>
#include <system_error>
#include <utility>

#include "base/MainThread.h"
#include "base/Text.h"
#include "linux_fs/LinuxFiles.h"

namespace quon {
namespace {

constexpr const char* kGroup = "quon";

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;

KeyFile load(const std::string& file) {
  requireBackground("UserDefaults");
  KeyFile keys(g_key_file_new(), &g_key_file_free);
  constexpr auto kEverything =
      static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
  (void)g_key_file_load_from_file(keys.get(), file.c_str(), kEverything, nullptr);
  return keys;
}

/// A key file holds Unicode text only: a path of other bytes is kept as a URI, which no absolute path looks
/// like.
std::string toLine(const std::string& text) {
  if (isValidUtf8(text) || !text.starts_with('/')) return text;
  const std::unique_ptr<char, decltype(&g_free)> uri(g_filename_to_uri(text.c_str(), nullptr, nullptr),
                                                     &g_free);
  return uri ? uri.get() : text;
}

std::string fromLine(const char* line) {
  const std::unique_ptr<char, decltype(&g_free)> path(g_filename_from_uri(line, nullptr, nullptr), &g_free);
  return path ? path.get() : line;
}

/// Written whole under another name and moved into place.
void save(const KeyFile& keys, const std::string& folder, const std::string& file) {
  LinuxFiles().makePrivateFolder(folder);
  GError* failure = nullptr;
  if (g_key_file_save_to_file(keys.get(), file.c_str(), &failure) != FALSE) return;
  const std::unique_ptr<GError, decltype(&g_error_free)> held(failure, &g_error_free);
  throw std::system_error(std::make_error_code(std::errc::io_error),
                          "cannot write " + displayText(file) + ": " + held->message);
}

}  // namespace

KeyFileDefaults::KeyFileDefaults(std::string configFolder)
    : folder(std::move(configFolder)), file(folder + "/defaults.ini") {}

std::optional<std::string> KeyFileDefaults::text(const std::string& key) const {
  const KeyFile keys = load(file);
  const std::unique_ptr<char, decltype(&g_free)> value(
      g_key_file_get_string(keys.get(), kGroup, key.c_str(), nullptr), &g_free);
  if (!value) return std::nullopt;
  return std::string(value.get());
}

std::vector<std::string> KeyFileDefaults::texts(const std::string& key) const {
  const KeyFile keys = load(file);
  gsize count = 0;
  const std::unique_ptr<char*, decltype(&g_strfreev)> values(
      g_key_file_get_string_list(keys.get(), kGroup, key.c_str(), &count, nullptr), &g_strfreev);
  std::vector<std::string> texts;
  for (gsize index = 0; values && index < count; ++index) texts.push_back(fromLine(values.get()[index]));
  return texts;
}

bool KeyFileDefaults::flag(const std::string& key) const {
  return g_key_file_get_boolean(load(file).get(), kGroup, key.c_str(), nullptr) != FALSE;
}

void KeyFileDefaults::setTexts(const std::string& key, const std::vector<std::string>& texts) {
  const KeyFile keys = load(file);
  std::vector<std::string> lines;
  lines.reserve(texts.size());
  for (const std::string& text : texts) lines.push_back(toLine(text));
  std::vector<const char*> pointers;
  pointers.reserve(lines.size());
  for (const std::string& line : lines) pointers.push_back(line.c_str());
  g_key_file_set_string_list(keys.get(), kGroup, key.c_str(), pointers.data(), pointers.size());
  save(keys, folder, file);
}

void KeyFileDefaults::setFlag(const std::string& key, bool flag) {
  const KeyFile keys = load(file);
  g_key_file_set_boolean(keys.get(), kGroup, key.c_str(), flag ? TRUE : FALSE);
  save(keys, folder, file);
}

}  // namespace quon
