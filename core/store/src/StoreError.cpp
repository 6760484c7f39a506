#include "store/StoreError.h"

namespace quon {
namespace {

bool isOfSQLite(StoreError::Kind kind) {
  return kind == StoreError::Kind::sqlite || kind == StoreError::Kind::busy ||
         kind == StoreError::Kind::unwritable;
}

}  // namespace

StoreError::StoreError(Kind which, const std::string& text)
    : std::runtime_error(isOfSQLite(which) ? "sqlite: " + text : text), kind(which), message(text) {}

StoreError StoreError::sqlite(const std::string& message) {
  return {Kind::sqlite, message};
}
StoreError StoreError::missing(const std::string& message) {
  return {Kind::missing, message};
}
StoreError StoreError::incompatible(const std::string& message) {
  return {Kind::incompatible, message};
}
StoreError StoreError::superseded() {
  return {Kind::superseded, "another program has changed the index"};
}
StoreError StoreError::busy(const std::string& message) {
  return {Kind::busy, message};
}
StoreError StoreError::unwritable(const std::string& message) {
  return {Kind::unwritable, message};
}

}  // namespace quon
