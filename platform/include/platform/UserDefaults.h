#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quon {

/// The user's settings, kept as a key file; each call may wait for the disk. Threads: any.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  /// The text under the key; none when it is not set.
  [[nodiscard]] virtual std::optional<std::string> text(const std::string& key) const = 0;
  /// The texts under the key, any bytes; none when it is not set.
  [[nodiscard]] virtual std::vector<std::string> texts(const std::string& key) const = 0;
  /// False when it is not set.
  [[nodiscard]] virtual bool flag(const std::string& key) const = 0;

  /// Each replaces the value of the key, at once. std::system_error when it cannot be saved.
  virtual void setTexts(const std::string& key, const std::vector<std::string>& texts) = 0;
  virtual void setFlag(const std::string& key, bool flag) = 0;
};

}  // namespace quon
