#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/FollowingJob.h"
#include "model/ModelState.h"
#include "store/ScanStore.h"

namespace quon {

/// The files behind a repeated name.
struct FilesOfName {
  std::string name;
  std::vector<NamedFile> files;  ///< largest allocation first
};

/// File names that occur more than once, and the files of one of them, from the saved index. Threads: main
/// only.
class NamesLens {
 public:
  static constexpr Lens kLens = Lens::names;
  /// Bytes, on disk unless names go by the metric; names whose files together take less are noise.
  static constexpr std::uint64_t leastNameTotal = 10485760;

  Observed<std::optional<std::vector<RepeatedName>>> _names;
  Observed<bool> _namesLoading;
  Observed<std::optional<std::string>> _namesError;
  Observed<std::optional<std::string>> _openName;  ///< whose files are listed; views set
  Observed<std::shared_ptr<const FilesOfName>> _filesOfName;
  Observed<bool> _filesOfNameLoading;

  /// Reads them again, seen or not.
  void scheduleNamesScan();

 protected:
  explicit NamesLens(ModelState& model);
  void deriveLens(bool isShown);

 private:
  [[nodiscard]] std::string below() const;
  [[nodiscard]] NamesBy by() const;

  ModelState& state;
  FollowingJob<std::vector<RepeatedName>> names;
  FollowingJob<FilesOfName> files;
};

}  // namespace quon
