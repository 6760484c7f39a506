#include "database/DatabaseError.h"

#include <sqlite3.h>

namespace quon {
namespace {

constexpr int kPrimaryCode = 0xFF;  // the rest of a result code is details

DatabaseError::Kind kindOf(int status) {
  switch (status & kPrimaryCode) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return DatabaseError::Kind::busy;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
      return DatabaseError::Kind::damaged;
    case SQLITE_INTERRUPT:
      return DatabaseError::Kind::stopped;
    case SQLITE_READONLY:
      return status == SQLITE_READONLY_DBMOVED ? DatabaseError::Kind::moved : DatabaseError::Kind::unwritable;
    case SQLITE_IOERR:
      // A file that ends before a page that it claims to have.
      return status == SQLITE_IOERR_SHORT_READ ? DatabaseError::Kind::damaged
                                               : DatabaseError::Kind::unwritable;
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      return DatabaseError::Kind::unwritable;
    default:
      return DatabaseError::Kind::other;
  }
}

}  // namespace

DatabaseError::DatabaseError(Kind reason, const std::string& message)
    : std::runtime_error(message), kind(reason) {}

DatabaseError DatabaseError::ofStatus(int status, const std::string& message) {
  return {kindOf(status), message};
}

void raiseAsItIs(const DatabaseError& failure) {
  throw DatabaseError(failure);
}

}  // namespace quon
