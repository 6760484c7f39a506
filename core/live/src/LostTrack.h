#pragma once

#include <cstdint>
#include <string>

namespace quon::Refresh {

/// In words why a stream can no longer say what changed, from the flags of its event (EventFlag::lostTrack).
[[nodiscard]] std::string lostTrackReason(std::uint32_t flags);

}  // namespace quon::Refresh
