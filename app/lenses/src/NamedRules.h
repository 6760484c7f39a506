#pragma once

#include <array>
#include <optional>

#include "lenses/Reclaim.h"

namespace quon::Reclaim {

/// Folders that are known by name alone, in the order in which the rules are tried. The two names of
/// the Zig cache share a group.
inline constexpr std::array<Rule, 31> kNamedRules{{
    {"node_modules", std::nullopt, "node_modules", "npm/yarn/pnpm/bun install brings it back"},
    {"DerivedData", std::nullopt, "Xcode DerivedData", "Xcode rebuilds on demand"},
    {"Caches", std::nullopt, "caches (dirs named Caches)", "apps rebuild their caches"},
    {".build", std::nullopt, "SwiftPM .build", "swift build regenerates"},
    {"Pods", std::nullopt, "CocoaPods Pods", "pod install regenerates"},
    {".next", std::nullopt, "Next.js build cache", "next build regenerates"},
    {".turbo", std::nullopt, "Turborepo cache", "rebuilt on next run"},
    {".parcel-cache", std::nullopt, "Parcel cache", "rebuilt on next run"},
    {"__pycache__", std::nullopt, "__pycache__", "Python regenerates"},
    {".venv", std::nullopt, "Python venvs", "recreate with uv/pip"},
    {".npm", std::nullopt, "npm cache (~/.npm)", "re-downloads as needed"},
    {".gradle", std::nullopt, "Gradle home", "caches + wrappers re-download"},
    {".nvm", std::nullopt, "nvm node versions", "nvm install brings them back"},
    {".rustup", std::nullopt, "rustup toolchains", "rustup reinstalls"},
    {"registry", ".cargo", "cargo registry", "re-downloads as needed"},
    {"iOS DeviceSupport", std::nullopt, "iOS DeviceSupport", "re-copied from device on connect"},
    {"tmp", ".tart", "tart tmp images", "leftover VM temp files"},
    {".Trash", std::nullopt, "Trash", "it's the trash"},
    {".dart_tool", std::nullopt, "Dart/Flutter .dart_tool", "flutter/dart regenerates"},
    {".expo", std::nullopt, "Expo cache", "the dev server rebuilds it"},
    {".pytest_cache", std::nullopt, "pytest cache", "regenerated on next run"},
    {".mypy_cache", std::nullopt, "mypy cache", "regenerated on next check"},
    {".ruff_cache", std::nullopt, "Ruff cache", "regenerated on next run"},
    {".tox", std::nullopt, "tox environments", "tox recreates them"},
    {".svelte-kit", std::nullopt, "SvelteKit build", "vite/svelte rebuilds"},
    {".angular", std::nullopt, "Angular cache", "the CLI rebuilds it"},
    {".stack-work", std::nullopt, "Haskell .stack-work", "stack rebuilds"},
    {"zig-cache", std::nullopt, "Zig cache", "zig regenerates"},
    {".zig-cache", std::nullopt, "Zig cache", "zig regenerates"},
    {"Carthage", std::nullopt, "Carthage", "carthage bootstrap re-fetches & rebuilds"},
    {".cxx", std::nullopt, "Android NDK .cxx", "the NDK build regenerates"},
}};

}  // namespace quon::Reclaim
