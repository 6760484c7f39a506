#pragma once

#include <string>
#include <vector>

#include "compare/Report.h"
#include "compare/Summary.h"

namespace quon::bench {

/// The comparison in markdown: a row for each command, then the machine, the tree and what is to be known
/// about the figures. Ends with a line end.
[[nodiscard]] std::string markdownTable(const Report& report,
                                        const std::vector<ContestantSummary>& summaries);

}  // namespace quon::bench
