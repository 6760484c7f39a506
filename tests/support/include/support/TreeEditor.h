#pragma once

#include <cstdint>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "platform/Events.h"

namespace quon::test {

/// Fills and edits a folder tree at random, as people and programs do, and returns the events that an ideal
/// service would deliver for it. Names are any bytes; beside files, folders and links there are sockets and
/// pipes. The same seed makes the same edits.
class TreeEditor {
 public:
  enum class Permissions { kept, edited };

  /// Edited permissions close folders to an ordinary user and open them again; edits that then succeed in
  /// part have incomplete events.
  TreeEditor(std::string root, std::uint64_t seed, Permissions permissions = Permissions::kept);

  /// One edit of a random kind. What cannot be done (nothing to delete, say) is replaced by a new file.
  void edit();
  /// Fills an empty root with so many entries and gives them odd times.
  void populate(int entries);
  /// The events of all edits since the last call. To be called also by tests that do not need them, once the
  /// edits are handled.
  [[nodiscard]] std::vector<FolderEvent> takeEvents();
  /// What was done, for a failure's message.
  [[nodiscard]] const std::vector<std::string>& log() const { return done; }

 private:
  enum class Kind { folder, regular, noFolder };

  void makeFile();
  void makeFolder();
  void makeSpecial();
  void append();
  void truncate();
  void removeFile();
  void removeFolder();
  void renameFile();
  void moveFolder();
  void swapFolders();
  void link();
  void unlinkName();
  void symlink();
  void setTimes();
  void replaceFolder();
  void setMode();

  [[nodiscard]] std::vector<std::string> allBelowRoot(Kind kind) const;
  /// "" when there is none.
  [[nodiscard]] std::string anyBelowRoot(Kind kind);
  [[nodiscard]] std::string anyFolder();
  [[nodiscard]] std::string freshName();
  [[nodiscard]] std::string freshPath() { return anyFolder() + "/" + freshName(); }
  [[nodiscard]] std::uint64_t below(std::uint64_t bound) { return random() % bound; }
  void setRandomTime(const std::string& path);
  void changed(const std::string& path);
  void appeared(const std::string& path);
  void wrote(const std::string& what, const std::string& path);
  /// The edit changed the folders that contain these paths.
  void record(std::string what, std::initializer_list<std::string> paths);

  const std::string root;
  const Permissions permissions;
  const char letter;  // of the names it makes
  std::mt19937_64 random;
  std::uint64_t made = 0;
  std::vector<FolderEvent> events;
  /// Since the events were taken, a file was written through one of several names. If that name is removed
  /// before they are handled, the other name's folder gets no event: no watch can see that, so no edit does
  /// it.
  bool wroteThroughLink = false;
  /// Since then a file got another name. If that can no longer be read, the first name's folder gets no event
  /// either.
  bool linked = false;
  std::vector<std::string> done;
};

}  // namespace quon::test
