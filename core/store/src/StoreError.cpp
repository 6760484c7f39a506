#include "store/StoreError.h"

namespace quon {

StoreError::StoreError(Kind which, const std::string& text)
    : std::runtime_error(which == Kind::sqlite ? "sqlite: " + text : text), kind(which), message(text) {}

StoreError StoreError::sqlite(const std::string& message) {
  return {Kind::sqlite, message};
}
StoreError StoreError::missing(const std::string& message) {
  return {Kind::missing, message};
}
StoreError StoreError::incompatible(const std::string& message) {
  return {Kind::incompatible, message};
}

}  // namespace quon
