#include "ExactSum.h"

#include <cstdint>
#include <sqlite3.h>

#include "store/StoreError.h"

namespace quon {
namespace {

struct Sum {
  std::uint64_t total;
};

void addValue(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  auto* sum = static_cast<Sum*>(sqlite3_aggregate_context(context, sizeof(Sum)));
  if (sum == nullptr) return sqlite3_result_error_nomem(context);
  const std::int64_t value = sqlite3_value_int64(values[0]);
  if (sqlite3_value_type(values[0]) != SQLITE_INTEGER || value < 0) {
    return sqlite3_result_error(context, "the index contains a size that is not a whole number of bytes", -1);
  }
  if (__builtin_add_overflow(sum->total, static_cast<std::uint64_t>(value), &sum->total)) {
    sqlite3_result_error(context, "integer overflow", -1);
  }
}

void finishSum(sqlite3_context* context) {
  const auto* sum = static_cast<const Sum*>(sqlite3_aggregate_context(context, 0));
  sqlite3_result_int64(context, sum == nullptr ? 0 : static_cast<std::int64_t>(sum->total));
}

}  // namespace

void registerExactSum(sqlite3* connection) {
  const int status =
      sqlite3_create_function_v2(connection, "sum", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS,
                                 nullptr, nullptr, addValue, finishSum, nullptr);
  if (status != SQLITE_OK) throw StoreError::sqlite(sqlite3_errmsg(connection));
}

}  // namespace quon
