#include "base/Reason.h"

namespace quon {
namespace {

bool isUpper(char byte) {
  return byte >= 'A' && byte <= 'Z';
}

}  // namespace

std::string reasonOf(const std::error_code& error) {
  std::string reason = error.message();
  // An abbreviation ("RPC version is wrong") stays as it is.
  if (reason.size() > 1 && isUpper(reason[0]) && !isUpper(reason[1])) {
    reason[0] = static_cast<char>(reason[0] - 'A' + 'a');
  }
  return reason;
}

std::string reasonOf(int errorNumber) {
  return errorNumber == 0 ? "" : reasonOf(std::error_code(errorNumber, std::generic_category()));
}

}  // namespace quon
