#pragma once

namespace quon::bench {

/// Throws when this user may not empty the kernel's caches.
void checkMayDropCaches();

/// Writes back what is dirty and empties the kernel's page, folder-entry and inode caches, of all file
/// systems.
void dropCaches();

}  // namespace quon::bench
