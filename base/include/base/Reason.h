#pragma once

#include <string>
#include <system_error>

namespace quon {

/// The system's message as it reads within a sentence: "permission denied", "too many open files".
[[nodiscard]] std::string reasonOf(const std::error_code& error);

/// The same of one of the system's error numbers; "" for 0.
[[nodiscard]] std::string reasonOf(int errorNumber);

}  // namespace quon
