#pragma once

#include "platform/UserDefaults.h"

namespace quon {

/// The group "quon" of the key file defaults.ini in the configuration folder, which only its owner may read.
/// A file or line that is missing or cannot be read sets nothing. Whatever the user wrote in the file stays,
/// and a file that cannot be read is not replaced: setting a value fails then.
class KeyFileDefaults final : public UserDefaults {
 public:
  explicit KeyFileDefaults(std::string configFolder);

  [[nodiscard]] std::optional<std::string> text(const std::string& key) const override;
  [[nodiscard]] std::vector<std::string> texts(const std::string& key) const override;
  [[nodiscard]] bool flag(const std::string& key) const override;
  void setTexts(const std::string& key, const std::vector<std::string>& texts) override;
  void setFlag(const std::string& key, bool flag) override;

 private:
  const std::string folder;
  const std::string file;
};

}  // namespace quon
