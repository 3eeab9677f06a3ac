// The frame every family export follows: argument check, open, run, read,
// close on every exit, coded error text.
#pragma once

#include <cstdint>
#include <string>

#include "core/connection.h"
#include "core/settings.h"

namespace scadastore {

// One exported call of a family ("alm", "log" or "rcd") with its number.
// The connection it owns is closed when the call object goes out of scope.
// Error codes are "[<family><number><serial>]".
class ExportCall {
 public:
  ExportCall(const char* family, int number) : family_(family), number_(number) {}

  // Serial 01: "invalid parameter".
  void InvalidParameter() { Fail(1, "invalid parameter"); }
  // Opens with the settings in force; on failure serial 02 "failed to open DSN: %s".
  bool Open();
  // OpenQuery; on failure closes and writes "failed to open table: %s".
  bool Query(int serial, const std::string& sql);
  // Execute; on failure closes and writes "exec error: %s, sql: %s".
  bool Execute(int serial, const std::string& sql);
  // Any other coded text.
  void Fail(int serial, const char* format, ...) __attribute__((format(printf, 3, 4)));

  DbConnection& db() { return db_; }
  SqlDialect dialect() const { return db_.dialect(); }
  DbKind kind() const { return db_.kind(); }

 private:
  const char* family_;
  int number_;
  DbConnection db_;
};

// Runs an export body so that no exception crosses the C boundary: a thrown
// exception (such as a failed allocation) becomes the failure value.
template <class Result, class Body>
Result Guarded(Result failure, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    return failure;
  }
}

}  // namespace scadastore
