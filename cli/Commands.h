#pragma once

#include "CommandLine.h"
#include "Session.h"

namespace quon::cli {

// Each command prints its result and returns the exit status; what goes wrong is thrown.

[[nodiscard]] int runScan(Session& session, const Command& command);
[[nodiscard]] int runList(Session& session, const Command& command);
[[nodiscard]] int runLargest(Session& session, const Command& command);
[[nodiscard]] int runKinds(Session& session, const Command& command);
[[nodiscard]] int runUntouched(Session& session, const Command& command);
[[nodiscard]] int runReclaim(Session& session, const Command& command);
/// Draws the folder into a file.
[[nodiscard]] int runMap(Session& session, const Command& command);
[[nodiscard]] int runSearch(Session& session, const Command& command);
/// The rows of the command bar.
[[nodiscard]] int runCommands(Session& session, const Command& command);
[[nodiscard]] int runNames(Session& session, const Command& command);
/// Until interrupted.
[[nodiscard]] int runWatch(Session& session, const Command& command);
/// Catches up every index whose root is there.
[[nodiscard]] int runRefresh(Session& session, const Command& command);
/// The only command that changes anything of the user's.
[[nodiscard]] int runTrash(Session& session, const Command& command);
[[nodiscard]] int runRecord(Session& session, const Command& command);
[[nodiscard]] int runIndexes(Session& session, const Command& command);

}  // namespace quon::cli
