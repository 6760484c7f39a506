#pragma once

#include "platform/UserDefaults.h"

namespace quon {

/// The group "quon" of the key file defaults.ini in the configuration folder.
class KeyFileDefaults final : public UserDefaults {
 public:
  explicit KeyFileDefaults(std::string configFolder);
  /// A file that is missing or is no key file sets nothing.
  [[nodiscard]] std::optional<std::string> text(const std::string& key) const override;

 private:
  const std::string file;
};

}  // namespace quon
