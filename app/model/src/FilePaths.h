#pragma once

#include <string>

namespace quon {

class FileService;

/// The path with the links above its last name resolved; as it is when that cannot be.
[[nodiscard]] std::string withoutLinksAbove(const FileService& files, const std::string& path);

}  // namespace quon
