#pragma once

#include <string>
#include <string_view>

#include "maketree/Random.h"

namespace quon::bench {

/// Invents names of 3 to 40 bytes as they occur on a disk: words, numbers, digests, camera names, other
/// scripts. Names repeat; the caller draws again when the folder already has that one. Threads: confined to
/// the one that makes the tree.
class NameMaker {
 public:
  explicit NameMaker(Random& source) : random(source) {}

  /// Valid until the next call.
  [[nodiscard]] const std::string& fileName();
  [[nodiscard]] const std::string& folderName();

 private:
  void appendWords(std::size_t most);
  void appendForeignWords();
  void appendDigits(std::size_t count);
  void appendHex(std::size_t count);
  void appendDate();
  void finish(std::string_view extension);

  Random& random;
  std::string name;
};

}  // namespace quon::bench
