#include "base/RootPath.h"

#include "base/Path.h"

namespace quon {

RootPath::RootPath(std::string_view path) : full(withoutTrailingSlashes(path)) {}

std::string_view RootPath::prefix() const {
  return pathPrefix(full);
}

bool RootPath::contains(std::string_view other) const {
  return relative(other).has_value();
}

std::optional<std::string_view> RootPath::relative(std::string_view other) const {
  return isEmpty() ? std::nullopt : relativeTo(other, full);
}

std::string RootPath::join(std::string_view below) const {
  return below.empty() ? full : joinPath(prefix(), below);
}

}  // namespace quon
