#include "core/insert_retry.h"

#include <chrono>
#include <cstring>
#include <random>
#include <thread>

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

namespace {

// A growing, random pause before attempt `attempt`: two writers that keep
// choosing the same ids fall apart, and a Galera node whose largest id lags
// the node that took it applies that write meanwhile.
void PauseBefore(int attempt) {
  thread_local std::minstd_rand random(static_cast<unsigned>(
      std::hash<std::thread::id>()(std::this_thread::get_id()) ^
      std::chrono::steady_clock::now().time_since_epoch().count()));
  std::this_thread::sleep_for(std::chrono::milliseconds(1 + random() % (10 * attempt)));
}

}  // namespace

bool InsertWithFreshIds(ExportCall& call, const std::function<bool()>& insert) {
  for (int attempt = 1;; ++attempt) {
    // The host and the monitor see the last attempt only, as one call.
    HeldFailureTexts held;
    const bool stored = (attempt == 1 || call.Open()) && insert();
    if (stored || attempt == kInsertAttempts || !RefusedForAnotherWriter(call.db())) {
      held.Publish();
      return stored;
    }
    PauseBefore(attempt + 1);
  }
}

}  // namespace scadastore
