#pragma once

#include <cstdint>
#include <string_view>

#include "maketree/NameMaker.h"
#include "maketree/Random.h"
#include "maketree/TreePlan.h"
#include "shared/FileDescriptor.h"

namespace quon::bench {

/// Makes the folders and files of a plan on the disk. Files are sparse: they have a size and no data.
/// About one name in 200 is a second name of an earlier file, often in another folder.
/// Threads: confined to the one that calls write.
class TreeWriter {
 public:
  TreeWriter(const TreePlan& planned, Random& source) : plan(planned), random(source), names(source) {}

  /// Fills the empty folder open as `root`. Throws SystemFailure; what was made until then stays.
  void write(int root) { fillFolder(0, root); }

  [[nodiscard]] std::uint64_t secondNames() const { return secondNameCount; }

 private:
  void fillFolder(std::uint32_t folder, int descriptor);
  void makeSubfolder(std::uint32_t folder, int parent);
  void makeFile(int parent);
  void makeSecondName(int parent);

  const TreePlan& plan;
  Random& random;
  NameMaker names;
  FileDescriptor linkSource;  ///< an earlier file that waits for its second name
  std::uint64_t secondNameCount = 0;
};

}  // namespace quon::bench
