#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quon::Kinds {

/// A name of at most sixteen bytes in two words: compared and hashed without a loop, made without the heap.
struct ShortName {
  static constexpr std::size_t kMost = 16;

  std::uint64_t first = 0;
  std::uint64_t second = 0;

  friend bool operator==(const ShortName&, const ShortName&) = default;

  /// The text in lower case; none when it is too long or not plain ASCII.
  [[nodiscard]] static constexpr std::optional<ShortName> lowerCase(std::string_view text) {
    if (text.size() > kMost) return std::nullopt;
    ShortName name;
    for (std::size_t at = 0; at < text.size(); ++at) {
      const auto byte = static_cast<unsigned char>(text[at]);
      if (byte == 0 || byte >= 0x80) return std::nullopt;  // 0 would vanish in the padding
      const bool upper = byte >= 'A' && byte <= 'Z';
      const std::uint64_t lower = upper ? byte + std::uint64_t{'a' - 'A'} : byte;
      (at < 8 ? name.first : name.second) |= lower << (at % 8 * 8);
    }
    return name;
  }
};

/// A fixed map from short names to kinds, made by the compiler: open addressing, linear probing. A name that
/// is put twice, or is no ShortName, does not compile.
template <std::size_t kSlots>
class NameTable {
 public:
  static_assert((kSlots & (kSlots - 1)) == 0);
  static constexpr std::uint8_t kNone = 0xff;

  constexpr void put(std::string_view text, std::uint8_t value) {
    const std::optional<ShortName> name = ShortName::lowerCase(text);
    if (!name || find(*name) != kNone) throw "a name that is too long or is in it twice";
    if (++used * 2 > kSlots) throw "a table that is more than half full";
    std::size_t at = slotOf(*name);
    while (slots[at].value != kNone) at = (at + 1) % kSlots;
    slots[at] = {*name, value};
  }

  /// kNone when the name is not in the table.
  [[nodiscard]] constexpr std::uint8_t find(const ShortName& name) const {
    std::size_t at = slotOf(name);
    while (slots[at].value != kNone && slots[at].name != name) at = (at + 1) % kSlots;
    return slots[at].value;
  }

 private:
  struct Slot {
    ShortName name;
    std::uint8_t value = kNone;
  };

  [[nodiscard]] static constexpr std::size_t slotOf(const ShortName& name) {
    // Odd constants with their bits well spread; a product's high bits depend on every byte of the name.
    const std::uint64_t mixed = name.first * 0x9e3779b97f4a7c15U ^ (name.second + 1) * 0xc2b2ae3d27d4eb4fU;
    return static_cast<std::size_t>(mixed >> 32U) % kSlots;
  }

  std::array<Slot, kSlots> slots{};
  std::size_t used = 0;
};

}  // namespace quon::Kinds
