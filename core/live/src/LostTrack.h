#pragma once

#include <string>

namespace quon {
struct FolderEvent;
}

namespace quon::Refresh {

/// In words why a stream can no longer say what changed, from its event (EventFlag::lostTrack).
[[nodiscard]] std::string lostTrackReason(const FolderEvent& event);

}  // namespace quon::Refresh
