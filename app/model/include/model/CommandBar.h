#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "model/FollowingJob.h"
#include "model/ModelState.h"
#include "rows/Entry.h"
#include "search/TreeSearch.h"

namespace quon {

/// The files that the command bar lists for its text; its commands come from the palette. Threads: main only.
class CommandBar {
 public:
  static constexpr std::size_t paletteCap = 250;  ///< files listed

  Observed<bool> _showPalette;  ///< views set
  Observed<std::vector<Entry>> _paletteHits;
  Observed<bool> _paletteSearching;
  std::string lastPaletteText;

  void schedulePaletteSearch(const std::string& text);

 protected:
  explicit CommandBar(ModelState& model);
  void deriveCommandBar();

 private:
  ModelState& state;
  FollowingJob<SearchHits> job;
};

}  // namespace quon
