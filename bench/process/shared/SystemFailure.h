#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace quon::bench {

/// An operation that the system refused: says the operation, its subject (mostly a path) and the system's
/// reason. Threads: any.
class SystemFailure : public std::runtime_error {
 public:
  /// `error` is an errno value.
  SystemFailure(std::string_view operation, std::string_view subject, int error);
};

/// `opening "/some/path": Permission denied`, in one line whatever bytes the subject contains.
[[nodiscard]] std::string systemReason(std::string_view operation, std::string_view subject, int error);

}  // namespace quon::bench
