#pragma once

#include "platform/Files.h"

namespace quon {

class LinuxFiles : public FileService {
 public:
  [[nodiscard]] std::optional<PathFacts> facts(const std::string& path,
                                               std::error_code& error) const override;
  [[nodiscard]] std::optional<PathFacts> ownFacts(const std::string& path,
                                                  std::error_code& error) const override;
  [[nodiscard]] std::optional<std::string> canonical(const std::string& path,
                                                     std::error_code& error) const override;
  [[nodiscard]] std::error_code readable(const std::string& folder) const override;
  [[nodiscard]] DiskIdentity disk(const std::string& folder) const override;
  [[nodiscard]] std::string boot() const override;
  [[nodiscard]] std::vector<std::string> mountPoints() const override;
  void makePrivateFolder(const std::string& path) const override;
  void createPrivateFile(const std::string& path) const override;
  void writePrivateFile(const std::string& path, std::string_view content) const override;
  void replace(const std::string& from, const std::string& to) const override;
  bool remove(const std::string& path) const override;
  [[nodiscard]] std::vector<FolderItem> list(const std::string& folder) const override;
};

}  // namespace quon
