#pragma once

#include "base/Log.h"

namespace quon {

/// The system log, and standard error too when that is a terminal. Threads: any.
class SystemLog final : public Log {
 public:
  void line(std::string_view text) override;
};

}  // namespace quon
