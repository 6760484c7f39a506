#include "platform_linux/KeyFileDefaults.h"

#include <glib.h>
#include <memory>

namespace quon {
namespace {

constexpr const char* kGroup = "quon";

}  // namespace

KeyFileDefaults::KeyFileDefaults(std::string configFolder)
    : file(std::move(configFolder) + "/defaults.ini") {}

std::optional<std::string> KeyFileDefaults::text(const std::string& key) const {
  const std::unique_ptr<GKeyFile, decltype(&g_key_file_free)> keys(g_key_file_new(), &g_key_file_free);
  if (g_key_file_load_from_file(keys.get(), file.c_str(), G_KEY_FILE_NONE, nullptr) == FALSE)
    return std::nullopt;
  const std::unique_ptr<char, decltype(&g_free)> value(
      g_key_file_get_string(keys.get(), kGroup, key.c_str(), nullptr), &g_free);
  if (!value) return std::nullopt;
  return std::string(value.get());
}

}  // namespace quon
