#pragma once

#include <memory>

#include "platform/Folders.h"
#include "platform/Platform.h"

namespace quon {

/// The services of a Linux desktop. Threads: any.
class LinuxPlatform {
 public:
  LinuxPlatform();
  ~LinuxPlatform();

  [[nodiscard]] const Platform& services() const;
  /// From $HOME (else the user database) and the XDG variables; those that are not absolute are ignored.
  [[nodiscard]] static Folders folders();
  /// Takes variables out of the environment that `folders` ignores, so that libraries ignore them too. Called once by
  /// main, before any thread.
  static void dropRelativeFolders();
  /// Lets the process have as many open folders as its hard limit allows. Called once by main.
  static void raiseOpenFileLimit();
  /// Has large blocks of memory that are freed go back to the system, also those that threads shared. Called
  /// once by main.
  static void returnFreedMemory();
  /// Has a write beyond the limit of file sizes fail, as one to a full disk does, instead of end the process.
  /// Called once by main.
  static void ignoreFileSizeSignal();

 private:
  struct Services;
  std::unique_ptr<Services> owned;
};

}  // namespace quon
