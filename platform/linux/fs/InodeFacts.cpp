#include "linux_fs/InodeFacts.h"

#include "Statx.h"

namespace quon {
namespace {

constexpr std::int64_t kMicrosPerSecond = 1'000'000;
constexpr std::int64_t kNanosPerMicro = 1000;

std::int64_t micros(const statx_timestamp& time) {
  return time.tv_sec * kMicrosPerSecond + time.tv_nsec / kNanosPerMicro;
}

std::optional<InodeFacts> read(int descriptor, const char* name, int flags) {
  struct statx found {};
  if (::statx(descriptor, name, flags, STATX_BASIC_STATS | STATX_BTIME, &found) != 0) return std::nullopt;
  const bool hasBirth = (found.stx_mask & STATX_BTIME) != 0;
  return InodeFacts{
      .identity = {.inode = found.stx_ino, .bornMicros = hasBirth ? micros(found.stx_btime) : 0},
      .device = deviceOf(found),
      .type = typeOfMode(found.stx_mode),
      .changedMicros = micros(found.stx_ctime),
      .modifiedMicros = micros(found.stx_mtime),
      .size = found.stx_size,
      .isMountRoot = (found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0};
}

}  // namespace

std::optional<InodeFacts> factsOf(int descriptor) {
  return read(descriptor, "", AT_EMPTY_PATH);
}

std::optional<InodeFacts> factsOfEntry(int folder, const char* name) {
  return read(folder, name, kEntryItself);
}

}  // namespace quon
