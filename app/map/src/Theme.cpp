#include "map/Theme.h"

#include <algorithm>

namespace quon {
namespace {

constexpr Colour hex(std::uint32_t rgb, double alpha = 1) {
  return Colour::ofHex(rgb, alpha);
}

constexpr double kFadePerDepth = 0.14;
constexpr double kMostFaded = 0.45;
constexpr double kDustFaded = 0.8;

constexpr Theme kLight{
    .isDark = false,
    .ground = hex(0xFFFFFF),
    .panel = hex(0xF6F6F4),
    .raise = hex(0xFFFFFF),
    .line = hex(0xE4E4E0),
    .line2 = hex(0xC9C9C4),
    .ink = hex(0x1B1D20),
    .ink2 = hex(0x4C5056),
    .ink3 = hex(0x62666C),
    .hover = hex(0xF0F0ED),
    .press = hex(0xE6E6E2),
    .soft = hex(0xE4EDFA),
    .soft2 = hex(0xD3E2F7),
    .accent = hex(0x1F5FBF),
    .accentInk = hex(0xFFFFFF),
    .danger = hex(0xB3261E),
    .warn = hex(0x8A4B00),
    .good = hex(0x1C7A45),
    .track = hex(0xE9E9E5),
    .rest = hex(0xD6D6D1),
    .mid = hex(0x8B9098),
    .label = hex(0x1B1D20),
    .toast = hex(0x26292E),
    .toastInk = hex(0xF4F5F6),
    .scrim = hex(0x1B1D20, 0.28),
    .slots = {hex(0x9BB2FB), hex(0xD3B865), hex(0x5FB9C8), hex(0xE0A392), hex(0x9F8AD3), hex(0xBFDF9B),
              hex(0xA1DAFF), hex(0xD27B84), hex(0x62DAD2), hex(0xAB9660), hex(0xC083A7), hex(0xAAD8BE)}};

constexpr Theme kDark{
    .isDark = true,
    .ground = hex(0x17181B),
    .panel = hex(0x1E2023),
    .raise = hex(0x25272B),
    .line = hex(0x2E3136),
    .line2 = hex(0x484C53),
    .ink = hex(0xEDEEF0),
    .ink2 = hex(0xB6BABF),
    .ink3 = hex(0x989CA3),
    .hover = hex(0x26282C),
    .press = hex(0x2E3136),
    .soft = hex(0x1F3150),
    .soft2 = hex(0x284070),
    .accent = hex(0x7FB0FF),
    .accentInk = hex(0x0E1726),
    .danger = hex(0xFF8F87),
    .warn = hex(0xE9B26B),
    .good = hex(0x6CC893),
    .track = hex(0x2B2E32),
    .rest = hex(0x43464B),
    .mid = hex(0x8B9098),
    .label = hex(0xF5F6F7),
    .toast = hex(0xE9EAEC),
    .toastInk = hex(0x1B1D20),
    .scrim = hex(0x000000, 0.50),
    .slots = {hex(0x4955B3), hex(0x876C04), hex(0x156A80), hex(0x802509), hex(0x6C2987), hex(0x5C7946),
              hex(0x2875AF), hex(0x9C2634), hex(0x087E75), hex(0x8A4800), hex(0x714368), hex(0x00653A)}};

}  // namespace

const Theme& Theme::light() {
  return kLight;
}

const Theme& Theme::dark() {
  return kDark;
}

Colour Theme::fill(int slotIndex, int depth, bool isRest) const {
  const Colour base = isRest ? rest : slots[static_cast<std::size_t>(slotIndex) % kMapSlots];
  return depth <= 1 ? base : mixed(base, ground, std::min((depth - 1) * kFadePerDepth, kMostFaded));
}

Colour Theme::dustFill(Colour firstRing) const {
  return mixed(firstRing, ground, kDustFaded);
}

}  // namespace quon
