#pragma once

#include <functional>
#include <optional>
#include <string>

namespace quon {

/// What a desktop session offers besides files and threads. Threads: main only, but for hasFullDiskAccess.
class DesktopService {
 public:
  virtual ~DesktopService() = default;

  /// Replaces the clipboard's content by plain text.
  virtual void copyText(const std::string& text) = 0;
  /// Asks for one folder, beginning at `start`; `chosen` is called later, not at all when the user cancels.
  virtual void chooseFolder(const std::string& start, std::function<void(const std::string&)> chosen) = 0;
  /// False where the system would ask the user, or refuse, when guarded folders of the home are read. May wait
  /// for the system. Threads: any.
  [[nodiscard]] virtual bool hasFullDiskAccess() = 0;
  /// Calls once, the next time the session's screen is unlocked.
  virtual void whenUnlocked(std::function<void()> call) = 0;
  /// Opens the settings in which that is granted.
  virtual void openPrivacySettings() = 0;
};

}  // namespace quon
