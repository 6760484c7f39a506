#pragma once

#include "platform/Threads.h"

namespace quon {

class LinuxThreads final : public ThreadService {
 public:
  [[nodiscard]] std::unique_ptr<RunningThread> start(const std::string& name, std::size_t stackBytes,
                                                     std::function<void()> body) const override;
  [[nodiscard]] ThreadUse used() const override;
  [[nodiscard]] unsigned activeProcessors() const override;
  void nameThisThread(const std::string& name) const override;
};

}  // namespace quon
