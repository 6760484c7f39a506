#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "platform/Events.h"

namespace quon::test {

/// Edits a folder tree at random, as people and programs do, and tells the folders that an ideal event
/// service would report for it. The same seed makes the same edits.
class TreeEditor {
 public:
  enum class Permissions { kept, edited };

  /// Edited permissions take folders from an ordinary user and give them back; the events do not tell then
  /// of edits that succeed in part.
  TreeEditor(std::string root, std::uint64_t seed, Permissions permissions = Permissions::kept);

  /// One edit of a random kind. What cannot be done (nothing to delete, say) is replaced by a new file.
  void edit();
  /// Fills an empty root: folders, small and large files, links.
  void populate(int edits);
  /// The events of all edits since the last call. Whoever learns of edits by other means calls it once they
  /// are handled.
  [[nodiscard]] std::vector<FolderEvent> takeEvents();
  /// What was done, for a failure's message.
  [[nodiscard]] const std::vector<std::string>& log() const { return done; }

 private:
  void makeFile();
  void makeFolder();
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

  [[nodiscard]] std::string anyFolder();
  /// "" when there is none.
  [[nodiscard]] std::string anyBelowRoot(bool folder);
  [[nodiscard]] std::string freshName();
  [[nodiscard]] std::uint64_t below(std::uint64_t bound);
  void changed(const std::string& path);
  void changedParent(const std::string& path);
  void appeared(const std::string& path);
  void note(const std::string& what);
  void wrote(const std::string& path);

  const std::string root;
  const Permissions permissions;
  const char letter;  // of the names it makes
  std::mt19937_64 random;
  std::uint64_t made = 0;
  std::vector<FolderEvent> events;
  /// A file was written through one of several names since the events were taken. If that name went before
  /// they are handled, nothing would tell the other name's folder: no watch can see that, so no edit does it.
  bool wroteThroughLink = false;
  /// A file got another name since then. If that went out of sight, nothing would tell the first name's
  /// folder either that the file has more names than one.
  bool linked = false;
  std::vector<std::string> done;
};

}  // namespace quon::test
