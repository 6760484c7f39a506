#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quon {

/// What a trash folder records beside each of its items.
struct TrashInfo {
  std::string originalPath;  ///< absolute
  std::int64_t trashedAt = 0;
};

/// The folder at the top of whose file system a trash lies, which paths in it are relative to; "" for the home
/// folder's, where they are absolute.
[[nodiscard]] std::string topOfTrash(std::string_view trash, std::string_view homeTrash);

/// The record's file for an item of this name.
[[nodiscard]] std::string infoFileOf(std::string_view trash, std::string_view name);

/// None when the file is missing, or does not say where the item was.
[[nodiscard]] std::optional<TrashInfo> readTrashInfo(const std::string& file, const std::string& top);

/// Writes the record whole, with the present time. Returns why it could not; "" when it did.
[[nodiscard]] std::string writeTrashInfo(const std::string& file, const std::string& top,
                                         const std::string& originalPath);

}  // namespace quon
