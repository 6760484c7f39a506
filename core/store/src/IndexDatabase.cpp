#include "IndexDatabase.h"

#include <cstdint>
#include <filesystem>

#include "ExactSum.h"
#include "IndexSchema.h"
#include "base/Text.h"
#include "store/MemoryIndex.h"
#include "store/StoreError.h"

namespace quon::IndexDatabase {
namespace {

/// A row takes at least a dozen bytes, and the most expensive query some 80 steps a row; ten times that.
constexpr std::uint64_t kMostStepsPerByte = 64;
constexpr std::uint64_t kMostStepsOfAnyFile = 5'000'000;

[[noreturn]] void raise(const DatabaseError& failure) {
  switch (failure.kind) {
    case DatabaseError::Kind::foreign:
      throw StoreError::incompatible(failure.what());
    case DatabaseError::Kind::busy:
      throw StoreError::busy(failure.what());
    case DatabaseError::Kind::moved:
      throw StoreError::superseded();
    case DatabaseError::Kind::unwritable:
      throw StoreError::unwritable(failure.what());
    case DatabaseError::Kind::damaged:
    case DatabaseError::Kind::stopped:
    case DatabaseError::Kind::other:
      break;
  }
  throw StoreError::sqlite(failure.what());
}

/// A connection that only reads is refused a file whose last writer was killed.
void rollBack(const std::string& path) {
  try {
    (void)openWrite(path, "");
  } catch (const StoreError&) {
    // Not writable for this user, or damaged: reading it reports which.
  }
}

}  // namespace

Database openRead(const std::string& path) {
  std::error_code ignored;
  if (MemoryIndex::isURL(path)) {
    Database database = Database::open(path, Database::Mode::read, raise);
    registerExactSum(database.raw());
    return database;
  }
  if (!std::filesystem::exists(path, ignored)) throw StoreError::missing("no index at " + displayText(path));
  if (std::filesystem::exists(path + "-journal", ignored)) rollBack(path);
  Database database = Database::open(path, Database::Mode::read, raise);
  const auto bytes = std::filesystem::file_size(path, ignored);
  // Pages of a damaged file can refer to one another over and over: a few of them make more rows than anyone
  // can wait for.
  database.stopAfter(kMostStepsOfAnyFile + (ignored ? 0 : bytes) * kMostStepsPerByte);
  database.distrust();
  registerExactSum(database.raw());
  checkSchema(database, path);
  return database;
}

Database openWrite(const std::string& path, const std::string& purpose) {
  Database database;
  try {
    database = Database::open(path, Database::Mode::write, raise);
  } catch (const StoreError&) {
    throw StoreError::sqlite("cannot open " + displayText(path) + purpose);
  }
  database.distrust();
  checkSchema(database, path);
  return database;
}

Database create(const std::string& path) {
  return Database::open(path, Database::Mode::create, raise);
}

std::uint64_t bytesOf(Database& database) {
  return static_cast<std::uint64_t>(database.number("PRAGMA page_count")) *
         static_cast<std::uint64_t>(database.number("PRAGMA page_size"));
}

void beginRead(Database& database, int waitMs) {
  database.exec("BEGIN");
  database.setBusyTimeout(waitMs);
  try {
    (void)database.prepare("SELECT 1 FROM meta").step();  // takes the lock
  } catch (const StoreError&) {
    database.exec("ROLLBACK");
    database.setBusyTimeout(Database::kBusyTimeoutMs);
    throw;
  }
  database.setBusyTimeout(Database::kBusyTimeoutMs);
}

}  // namespace quon::IndexDatabase
