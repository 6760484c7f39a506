#pragma once

#include <cstdint>
#include <string>

namespace quon {

// How sizes and counts read in every message and list. Threads: any.

/// "512 B", "1.5 KB", "3.0 TB": powers of 1,024, one decimal from KB on, TB the largest unit.
[[nodiscard]] std::string humanBytes(std::uint64_t bytes);

/// The decimal digits in groups of three: "1,234,567".
[[nodiscard]] std::string grouped(std::uint64_t number);

}  // namespace quon
