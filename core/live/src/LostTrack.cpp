#include "LostTrack.h"

#include <array>
#include <string_view>

#include "platform/Events.h"

namespace quon::Refresh {
namespace {

struct Reason {
  std::uint32_t flags;
  std::string_view words;
};

constexpr std::array<Reason, 5> kReasons{{
    {EventFlag::rootChanged, "the folder was moved, replaced or deleted"},
    {EventFlag::userDropped | EventFlag::kernelDropped, "some changes were not recorded"},
    {EventFlag::idsWrapped, "the journal of changes was started anew"},
    {EventFlag::mount, "a disk was mounted in the folder"},
    {EventFlag::unmount, "a disk in the folder was unmounted"},
}};

}  // namespace

std::string lostTrackReason(const FolderEvent& event) {
  if (!event.reason.empty()) return event.reason;
  std::string all;
  for (const Reason& reason : kReasons) {
    if ((event.flags & reason.flags) == 0) continue;
    if (!all.empty()) all += "; ";
    all += reason.words;
  }
  return all;
}

}  // namespace quon::Refresh
