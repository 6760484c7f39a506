#pragma once

#include <string>

#include "compare/Report.h"

namespace quon::bench {

/// Every single run as one JSON document: {"machine", "tree", "cold", "ownPeakBytes", "leftOut", "commands":
/// [{"name", "title", "arguments", "runs": [{"wallSeconds", "userSeconds", "systemSeconds", "peakBytes",
/// "exitStatus", "signal"}]}]}. Ends with a line end.
[[nodiscard]] std::string rawFigures(const Report& report);

}  // namespace quon::bench
