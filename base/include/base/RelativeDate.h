#pragma once

#include <cstdint>
#include <string>

namespace quon {

/// A time as people say it: "now", "5 minutes ago", "yesterday", "3 weeks ago", "last year". Seconds since
/// 1970; a time after `now` is "now". Threads: any.
[[nodiscard]] std::string relativeDate(std::int64_t time, std::int64_t now);

}  // namespace quon
