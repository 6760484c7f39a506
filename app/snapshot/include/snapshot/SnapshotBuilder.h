#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/FunctionRef.h"
#include "base/RefPtr.h"
#include "lenses/Kinds.h"
#include "platform/Volume.h"
#include "rows/Entry.h"
#include "scan/DirNode.h"
#include "snapshot/QuonSnapshot.h"

namespace quon {

/// What of a tree goes into its snapshot, sizes in the metric. `rootPath` as in rows/FolderRows.h; nullopt when
/// `cancelled` said so, as in rows/Cancellation.h. Threads: any that may read the tree.
[[nodiscard]] std::optional<QuonSnapshot> snapshotOf(const RefPtr<DirNode>& root, std::string_view rootPath,
                                                     Metric metric, const KindOverrides& overrides,
                                                     FunctionRef<bool()> cancelled);

/// Adds the volume that the root is on, and the time, seconds since 1970.
void complete(QuonSnapshot& snapshot, const std::optional<VolumeCapacity>& volume, std::int64_t now);

/// What a volume without a name is called.
[[nodiscard]] std::string volumeNameOrGeneric(const std::string& name);

/// Bytes as the snapshot's signed numbers, which end at their largest.
[[nodiscard]] std::int64_t signedBytes(std::uint64_t bytes);

}  // namespace quon
