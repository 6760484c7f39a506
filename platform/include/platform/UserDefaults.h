#pragma once

#include <optional>
#include <string>

namespace quon {

/// The user's settings, kept as a key file. Threads: main only.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  /// The text under the key; none when it is not set.
  [[nodiscard]] virtual std::optional<std::string> text(const std::string& key) const = 0;
};

}  // namespace quon
