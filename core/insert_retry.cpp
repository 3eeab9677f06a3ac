#include "core/insert_retry.h"

#include <cstring>

#include "core/last_error.h"

namespace scadastore {

bool RefusedForAnotherWriter(const DbConnection& db) {
  const char* state = db.ErrorState();
  const int native = db.NativeError();
  if (std::strcmp(state, "23505") == 0) return true;                  // PostgreSQL
  if (native == 1062 || native == 1213) return true;                  // MariaDB, Galera
  // The SQLite3 driver reports HY000 with SQLite's code, 19 for a constraint;
  // the id is the only key of the library's tables.
  return std::strcmp(state, "HY000") == 0 && native == 19 &&
         std::strstr(db.ErrorText(), "UNIQUE constraint failed") != nullptr;
}

bool InsertWithFreshIds(ExportCall& call, const std::function<bool()>& insert) {
  for (int attempt = 1;; ++attempt) {
    HeldErrorText held;
    if (insert()) return true;
    if (attempt == kInsertAttempts || !RefusedForAnotherWriter(call.db()) || !call.Open()) {
      held.Publish();
      return false;
    }
  }
}

}  // namespace scadastore
