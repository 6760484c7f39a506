#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace quon::test {

// What changes a whole process (its identity, its mounts, its limits) runs in a forked child, whose failed
// expectations and skips become those of the calling test. A child ends without running destructors of its
// parent. Threads: main only, while no other thread runs.

void inChild(const std::function<void()>& body);

/// In a child with a mount namespace of its own: what the body mounts is gone when it ends. Skips the test,
/// with the reason, where the process may not make one.
void inPrivateMounts(const std::function<void()>& body);

/// In a child to which permissions apply: as the user nobody when the test runs as root.
void asOrdinaryUser(const std::function<void()>& body);

/// Only in a child. From here on the system call of that number fails with the error number, as in a sandbox.
void refuseCall(long number, int error);

/// Only in private mounts. An empty file system in memory, without limits of its own.
void mountTmpfs(const std::string& folder);
void bindMount(const std::string& from, const std::string& to);

/// The numbers of open descriptors of this process, counted.
[[nodiscard]] std::size_t openDescriptors();

}  // namespace quon::test
