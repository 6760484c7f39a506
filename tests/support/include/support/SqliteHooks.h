#pragma once

#include <functional>

namespace quon::test {

/// While it lives, calls back before this thread's accesses to database files and their journals: every
/// moment at which a program can meet another one, or be killed. A layer over SQLite's own access to files,
/// for connections that are opened meanwhile. One at a time.
class SqliteHooks {
 public:
  enum class Access {
    sharedLock,
    change,  ///< bytes written, a file cut, forced to the disk, or deleted
  };

  explicit SqliteHooks(std::function<void(Access)> before);
  ~SqliteHooks();
  SqliteHooks(const SqliteHooks&) = delete;
  SqliteHooks& operator=(const SqliteHooks&) = delete;
};

}  // namespace quon::test
