#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quon {

// Paths as bytes: absolute, joined with "/", a root without trailing slash. Nothing here reads the disk or
// resolves "." and "..". Threads: any.

/// parent + "/" + name, whatever the two are.
[[nodiscard]] std::string joinPath(std::string_view parent, std::string_view name);

/// What follows the last slash: the whole path when it has none, "/" for "/".
[[nodiscard]] std::string_view lastComponent(std::string_view path);

/// What stands before the last slash: "/" for "/" and for what lies directly in it, "" without a slash.
[[nodiscard]] std::string_view parentPath(std::string_view path);

/// Takes the first component off the front of `path`, with the slashes before it, and returns it; "" when
/// none is left.
[[nodiscard]] std::string_view takeComponent(std::string_view& path);

/// "/" stays "/".
[[nodiscard]] std::string withoutTrailingSlashes(std::string_view path);

/// What paths below a root are joined to: the root itself, but "" for "/", whose slash would be doubled.
[[nodiscard]] std::string_view pathPrefix(std::string_view root);

/// A leading "~" that stands alone or before a slash becomes `home`; "~name" and all else stay as they are.
[[nodiscard]] std::string expandTilde(std::string_view path, std::string_view home);

/// True when `path` is `root` or lies below it. The root "/" contains every absolute path.
[[nodiscard]] bool isInside(std::string_view path, std::string_view root);

/// The part of `path` below `root` without a leading slash, "" for the root itself, nullopt outside it. The
/// result is a view into `path`.
[[nodiscard]] std::optional<std::string_view> relativeTo(std::string_view path, std::string_view root);

}  // namespace quon
