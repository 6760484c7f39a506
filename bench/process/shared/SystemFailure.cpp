#include "shared/SystemFailure.h"

#include <fmt/format.h>
#include <system_error>

namespace quon::bench {

SystemFailure::SystemFailure(std::string_view operation, std::string_view subject, int error)
    : std::runtime_error(systemReason(operation, subject, error)) {}

std::string systemReason(std::string_view operation, std::string_view subject, int error) {
  std::string shown;
  for (const char byte : subject) {
    const auto code = static_cast<unsigned char>(byte);
    if (code < 0x20 || code == 0x7f) {
      shown += fmt::format("\\x{:02x}", code);
    } else {
      shown += byte;
    }
  }
  return fmt::format("{} \"{}\": {}", operation, shown, std::generic_category().message(error));
}

}  // namespace quon::bench
