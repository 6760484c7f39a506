#pragma once

#include <cstdint>

namespace quon {

/// Logical bytes: files of at least this size are kept in the tree one by one, smaller ones are only summed.
inline constexpr std::uint64_t kMinKeep = 1048576;

/// How many of the largest files a scan remembers.
inline constexpr std::int64_t kTopFiles = 1000;

}  // namespace quon
