#pragma once

#include "base/Log.h"

namespace quon {

/// The system log, and standard error beside it. Threads: any.
class SystemLog final : public Log {
 public:
  enum class Echo {
    onTerminal,  ///< on standard error where that is a terminal: for services and windows
    never,
    always,      ///< for commands, whose user is there to read it
  };
  explicit SystemLog(Echo when) : echo(when) {}
  void line(std::string_view text) override;

 private:
  const Echo echo;
};

}  // namespace quon
