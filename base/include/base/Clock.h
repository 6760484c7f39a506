#pragma once

namespace quon {

/// The wall clock in seconds since 1970-01-01 00:00 UTC, with fractions, which those drop who store
/// whole seconds. The clock may be set back at any time. Threads: any.
[[nodiscard]] double secondsSince1970();

}  // namespace quon
