#pragma once

#include "platform/Volume.h"

namespace quon {

class LinuxVolumes final : public VolumeService {
 public:
  [[nodiscard]] std::optional<VolumeCapacity> capacity(const std::string& path) const override;
};

}  // namespace quon
