#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/Trash.h"

namespace quon {

/// The trash of the freedesktop.org specification, as GIO and the desktop's file managers use it: that of the
/// home folder for what is on its file system, else one at the top of the item's own.
class LinuxTrash final : public TrashService {
 public:
  /// Moves the item at the path into the trash, wherever the system decides that it goes; throws TrashFailure.
  using Mover = std::function<void(const std::string& path)>;

  /// `dataHome` as in Folders.
  LinuxTrash(const std::string& dataHome, std::uint32_t user, Mover mover = moveByGio);

  [[nodiscard]] ExpectedItem inspect(const std::string& path) const override;
  [[nodiscard]] TrashedItem moveToTrash(const std::string& path, const ExpectedItem& expected) override;
  [[nodiscard]] std::vector<std::string> folders() const override;
  [[nodiscard]] TrashFolder list(const std::string& folder) const override;

  static void moveByGio(const std::string& path);

 private:
  void refuseTrash(const std::string& path, const std::string& mountPoint) const;
  /// Where an item on this mount may go.
  [[nodiscard]] std::vector<std::string> foldersOf(const std::string& mountPoint) const;

  const std::string homeTrash;
  const std::uint32_t user;
  const Mover move;
};

}  // namespace quon
