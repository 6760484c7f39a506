#include "watch/Privilege.h"

#include <array>
#include <cstdint>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quon {
namespace {

using Sets = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

constexpr std::array<unsigned, 2> kNeeded{CAP_SYS_ADMIN, CAP_DAC_READ_SEARCH};
constexpr unsigned kBits = 32;

bool read(Sets& sets) {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  return ::syscall(SYS_capget, &header, sets.data()) == 0;
}

bool hasAll(const Sets& sets) {
  for (const unsigned capability : kNeeded) {
    if ((sets.at(capability / kBits).permitted >> (capability % kBits) & 1U) == 0) return false;
  }
  return true;
}

/// Root's own rights rest on capabilities like these; there is nobody to keep anything from.
bool isRoot() {
  return ::geteuid() == 0;
}

void set(bool inForce) {
  Sets sets{};
  if (isRoot() || !read(sets) || !hasAll(sets)) return;
  for (const unsigned capability : kNeeded) {
    std::uint32_t& effective = sets.at(capability / kBits).effective;
    const std::uint32_t bit = 1U << (capability % kBits);
    effective = inForce ? effective | bit : effective & ~bit;
  }
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  // Within the permitted set this is never refused.
  ::syscall(SYS_capset, &header, sets.data());
}

}  // namespace

bool Privilege::isAtHand() {
  Sets sets{};
  return read(sets) && hasAll(sets);
}

void Privilege::lower() {
  set(false);
}

Privilege::Privilege() {
  set(true);
}
Privilege::~Privilege() {
  set(false);
}

}  // namespace quon
