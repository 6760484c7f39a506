#include "base/Path.h"

#include <algorithm>
#include <cstddef>

namespace quon {

namespace {

std::string_view trimmed(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

}  // namespace

std::string joinPath(std::string_view parent, std::string_view name) {
  std::string path;
  path.reserve(parent.size() + 1 + name.size());
  path += parent;
  path += '/';
  path += name;
  return path;
}

std::string_view lastComponent(std::string_view path) {
  if (path == "/") return path;
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

std::string_view parentPath(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) return {};
  return path.substr(0, slash == 0 ? 1 : slash);
}

std::string_view takeComponent(std::string_view& path) {
  path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
  const std::string_view first = path.substr(0, path.find('/'));
  path.remove_prefix(first.size());
  return first;
}

std::string withoutTrailingSlashes(std::string_view path) {
  return std::string(trimmed(path));
}

std::string_view pathPrefix(std::string_view root) {
  return root == "/" ? std::string_view() : root;
}

std::string expandTilde(std::string_view path, std::string_view home) {
  if (path != "~" && !path.starts_with("~/")) return std::string(path);
  std::string expanded(home);
  expanded += path.substr(1);
  return expanded;
}

bool isInside(std::string_view path, std::string_view root) {
  return relativeTo(path, root).has_value();
}

std::optional<std::string_view> relativeTo(std::string_view path, std::string_view root) {
  if (!path.starts_with(root)) return std::nullopt;
  if (root == "/") {
    // A child of "/" is "//usr" where parent and name were joined, and "/usr" where the system gave the path.
    const std::size_t name = path.find_first_not_of('/');
    return name == std::string_view::npos ? std::string_view() : path.substr(name);
  }
  std::string_view rest = path.substr(root.size());
  if (rest.empty()) return rest;
  if (rest.front() != '/') return std::nullopt;
  rest.remove_prefix(1);
  return rest;
}

}  // namespace quon
