#include "lenses/MarkerFiles.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "base/Path.h"

namespace quon {

bool DiskMarkers::contains(const std::string& folder, std::string_view name) const {
  std::error_code ignored;
  return std::filesystem::symlink_status(joinPath(folder, name), ignored).type() ==
         std::filesystem::file_type::regular;
}

std::optional<std::string> DiskMarkers::beginning(const std::string& folder, std::string_view name,
                                                  std::size_t most) const {
  // Opening a pipe would wait for its other end, so the type is checked first.
  if (!contains(folder, name)) return std::nullopt;
  std::ifstream file(joinPath(folder, name), std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes(most, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(most));
  if (file.bad()) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

}  // namespace quon
