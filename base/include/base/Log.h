#pragma once

#include <string_view>

namespace quon {

/// Where diagnostic lines go. Passed to what writes them; there is no global one. Threads: any.
class Log {
 public:
  Log() = default;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  virtual ~Log() = default;

  /// Writes one line; `text` carries neither prefix nor line break.
  virtual void line(std::string_view text) = 0;
};

/// Lines on standard error, each prefixed with "[quon] " and written whole, so that lines of several threads
/// do not mix. Control characters are made visible, since names of files occur in lines.
class StandardErrorLog final : public Log {
 public:
  void line(std::string_view text) override;
};

}  // namespace quon
