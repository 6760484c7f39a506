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
/// that which is known by name. Not here: ~/.m2/repository and ~/.nuget/packages, which also contain what was
/// installed by hand and comes from nowhere else.
inline constexpr std::array<PlacedRule, 15> kPlacedRules{{
    {Anchor::cacheHome, "", {".cache", std::nullopt, "app caches (~/.cache)", "apps rebuild their caches"}},
    {Anchor::compilerCache, "", {"0", ".ccache", "ccache (~/.ccache)", "the next builds refill it"}},
    {Anchor::home, ".cargo/git", {"git", ".cargo", "cargo git checkouts", "re-cloned as needed"}},
    {Anchor::home, "go/pkg/mod", {"mod", "pkg", "Go module cache", "re-downloads as needed"}},
    {Anchor::home, ".ivy2/cache", {"cache", ".ivy2", "Ivy cache", "re-downloads as needed"}},
    {Anchor::home, ".bun/install/cache", {"cache", "install", "Bun cache", "bun install re-downloads"}},
    {Anchor::home, ".cabal/packages", {"packages", ".cabal", "cabal packages", "re-downloads as needed"}},
    {Anchor::home,
     ".opam/download-cache",
     {"download-cache", ".opam", "opam downloads", "re-downloads as needed"}},
    {Anchor::home, ".pub-cache/hosted", {"hosted", ".pub-cache", "pub packages", "pub get re-downloads"}},
    {Anchor::home, ".julia/compiled", {"compiled", ".julia", "Julia compiled code", "julia recompiles"}},
    {Anchor::home,
     ".thumbnails",
     {".thumbnails", std::nullopt, "thumbnails", "made again when a folder is viewed"}},
    {Anchor::home, ".yarn/berry/cache", {"cache", "berry", "Yarn cache", "re-downloads as needed"}},
    {Anchor::dataHome, "pnpm/store", {"store", "pnpm", "pnpm store", "pnpm install re-downloads"}},
    {Anchor::dataHome, "Trash", {"Trash", std::nullopt, "Trash", "it's the trash"}},
    {Anchor::mountPoint, ".Trash-", {".Trash-", std::nullopt, "Trash", "it's the trash"}},
}};

/// The folder `cache` of each folder of ~/.var/app, one an application in a sandbox.
inline constexpr Rule kFlatpakCache{"cache", std::nullopt, "Flatpak app caches", "apps rebuild their caches"};
/// The cache folder of each application of ~/snap, in what its revisions share or in one's own.
inline constexpr Rule kSnapCache{".cache", std::nullopt, "Snap app caches", "apps rebuild their caches"};
/// What browsers and applications built on one keep among their settings, at any depth.
inline constexpr Rule kBrowserCache{"Cache", std::nullopt, "Electron & browser caches",
                                    "apps rebuild their caches"};
inline constexpr Rule kRustTarget{"target", std::nullopt, "Rust target", "cargo build regenerates"};
inline constexpr Rule kTagged{"CACHEDIR.TAG", std::nullopt, "caches (marked CACHEDIR.TAG)",
                              "whatever filled it refills it"};

}  // namespace quon::Reclaim
