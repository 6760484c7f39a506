#include "platform_linux/KeyFileDefaults.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "KeyFileText.h"
#include "base/MainThread.h"
#include "base/Text.h"
#include "linux_fs/Descriptor.h"
#include "linux_fs/LinuxFiles.h"

namespace quon {
namespace {

constexpr const char* kGroup = "quon";

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_free)>;
using Text = std::unique_ptr<char, decltype(&g_free)>;

/// "" when there is none.
std::string readFile(const std::string& file) {
  requireBackground("UserDefaults");
  const Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!opened.isOpen() && errno == ENOENT) return "";
  std::string text;
  std::array<char, 4096> piece{};
  ssize_t bytes = opened.isOpen() ? 0 : -1;
  while (bytes >= 0 && (bytes = ::read(opened.get(), piece.data(), piece.size())) > 0) {
    text.append(piece.data(), static_cast<std::size_t>(bytes));
  }
  if (bytes < 0) throw std::system_error(errno, std::generic_category(), "cannot read " + displayText(file));
  return text;
}

/// A key file of the one line that the key has in the file. What cannot be read sets nothing.
KeyFile load(const std::string& file, const std::string& key) {
  KeyFile keys(g_key_file_new(), &g_key_file_free);
  try {
    const std::string text = readFile(file);
    const std::string line = fmt::format("[{}]\n{}\n", kGroup, keyFileLine(text, kGroup, key));
    (void)g_key_file_load_from_data(keys.get(), line.c_str(), line.size(), G_KEY_FILE_NONE, nullptr);
  } catch (const std::system_error&) {
    // Saving reports it.
  }
  return keys;
}

/// A key file holds Unicode text only: a path of other bytes is kept as a URI, which no absolute path looks
/// like.
std::string toLine(const std::string& text) {
  if (isValidUtf8(text) || !text.starts_with('/')) return text;
  const Text uri(g_filename_to_uri(text.c_str(), nullptr, nullptr), &g_free);
  return uri ? uri.get() : text;
}

std::string fromLine(const char* line) {
  const Text path(g_filename_from_uri(line, nullptr, nullptr), &g_free);
  return path ? path.get() : line;
}

/// Puts the line that the key file has for the key into the file, which is written whole under another name
/// and moved into place. Where a link leads elsewhere, the file there is replaced.
void save(const KeyFile& keys, const std::string& folder, const std::string& file, const std::string& key) {
  const LinuxFiles files;
  files.makePrivateFolder(folder);
  const Text group(g_key_file_to_data(keys.get(), nullptr, nullptr), &g_free);
  const std::string line(keyFileLine(group.get(), kGroup, key));
  const std::string text = withKeyFileLine(readFile(file), kGroup, key, line);
  std::error_code missing;
  const std::string place = files.canonical(file, missing).value_or(file);
  files.writePrivateFile(place, text);
}

}  // namespace

KeyFileDefaults::KeyFileDefaults(std::string configFolder)
    : folder(std::move(configFolder)), file(folder + "/defaults.ini") {}

std::optional<std::string> KeyFileDefaults::text(const std::string& key) const {
  const KeyFile keys = load(file, key);
  const Text value(g_key_file_get_string(keys.get(), kGroup, key.c_str(), nullptr), &g_free);
  if (!value) return std::nullopt;
  return std::string(value.get());
}

std::vector<std::string> KeyFileDefaults::texts(const std::string& key) const {
  const KeyFile keys = load(file, key);
  gsize count = 0;
  const std::unique_ptr<char*, decltype(&g_strfreev)> values(
      g_key_file_get_string_list(keys.get(), kGroup, key.c_str(), &count, nullptr), &g_strfreev);
  std::vector<std::string> texts;
  for (gsize index = 0; values && index < count; ++index) texts.push_back(fromLine(values.get()[index]));
  return texts;
}

bool KeyFileDefaults::flag(const std::string& key) const {
  return g_key_file_get_boolean(load(file, key).get(), kGroup, key.c_str(), nullptr) != FALSE;
}

void KeyFileDefaults::setTexts(const std::string& key, const std::vector<std::string>& texts) {
  const KeyFile keys(g_key_file_new(), &g_key_file_free);
  std::vector<std::string> lines;
  lines.reserve(texts.size());
  for (const std::string& text : texts) lines.push_back(toLine(text));
  std::vector<const char*> pointers;
  pointers.reserve(lines.size());
  for (const std::string& line : lines) pointers.push_back(line.c_str());
  g_key_file_set_string_list(keys.get(), kGroup, key.c_str(), pointers.data(), pointers.size());
  save(keys, folder, file, key);
}

void KeyFileDefaults::setFlag(const std::string& key, bool flag) {
  const KeyFile keys(g_key_file_new(), &g_key_file_free);
  g_key_file_set_boolean(keys.get(), kGroup, key.c_str(), flag ? TRUE : FALSE);
  save(keys, folder, file, key);
}

}  // namespace quon
