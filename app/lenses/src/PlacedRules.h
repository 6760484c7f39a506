#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "lenses/Reclaim.h"

namespace quon::Reclaim {

/// What a rule's path starts from.
enum class Anchor : std::uint8_t {
  home,
  cacheHome,
  dataHome,
  mountPoint,     ///< each mounted volume; the user's number follows the path
  compilerCache,  ///< ~/.ccache: its sixteen folders 0 to f, because the user's settings lie beside them
};

struct PlacedRule {
  Anchor anchor;
  std::string_view path;  ///< below the anchor, "" for the anchor itself
  Rule rule;
};

/// Folders known by where they lie. The trash of the home folder and of other volumes shares a group with
/// that which is known by name.
inline constexpr std::array<PlacedRule, 10> kPlacedRules{{
    {Anchor::cacheHome, "", {".cache", std::nullopt, "XDG cache folder", "apps rebuild their caches"}},
    {Anchor::compilerCache, "", {"0", ".ccache", "ccache (~/.ccache)", "the next builds refill it"}},
    {Anchor::home, ".cargo/git", {"git", ".cargo", "cargo git checkouts", "re-cloned as needed"}},
    {Anchor::home, "go/pkg/mod", {"mod", "pkg", "Go module cache", "re-downloads as needed"}},
    {Anchor::home,
     ".m2/repository",
     {"repository", ".m2", "Maven repository", "re-downloads; mvn install brings your own builds back"}},
    {Anchor::home, ".ivy2/cache", {"cache", ".ivy2", "Ivy cache", "re-downloads as needed"}},
    {Anchor::home, ".yarn/berry/cache", {"cache", "berry", "Yarn cache", "re-downloads as needed"}},
    {Anchor::dataHome, "pnpm/store", {"store", "pnpm", "pnpm store", "pnpm install re-downloads"}},
    {Anchor::dataHome, "Trash", {"Trash", std::nullopt, "Trash", "it's the trash"}},
    {Anchor::mountPoint, ".Trash-", {".Trash-", std::nullopt, "Trash", "it's the trash"}},
}};

/// The folder `cache` of each folder of ~/.var/app, one an application in a sandbox.
inline constexpr Rule kAppCache{"cache", std::nullopt, "Flatpak app caches", "apps rebuild their caches"};
inline constexpr Rule kRustTarget{"target", std::nullopt, "Rust target", "cargo build regenerates"};
inline constexpr Rule kTagged{"CACHEDIR.TAG", std::nullopt, "caches (marked CACHEDIR.TAG)",
                              "whatever filled it refills it"};

}  // namespace quon::Reclaim
