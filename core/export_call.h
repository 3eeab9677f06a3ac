// The frame every family export follows: argument check, open, run, read,
// close on every exit, coded error text.
#pragma once

#include <cstdint>
#include <string>

#include "core/connection.h"
#include "core/export_codes.h"
#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore {

// One exported call with its row of export_codes.h. The connection it owns is
// closed when the call object goes out of scope. Every Fail... writes the
// coded text and returns the export's failure value.
class ExportCall {
 public:
  explicit ExportCall(const ExportCode& code) : code_(code) {}

  // Serial 01.
  uint32_t InvalidParameter();
  // Forwards what the spool holds for a slice of time, then opens with the
  // settings in force; on failure serial 02 with the DSN.
  bool Open();
  // Serial 02 with the DSN and the spool's reason for not keeping a write.
  uint32_t FailSpool(const std::string& reason);
  // OpenQuery; on failure closes and writes kOpenTable with the statement.
  // A statement cut by its buffer is not run: it fails alike, naming the cut text.
  bool Query(const Statement& sql, DbConnection::Cursor cursor = DbConnection::Cursor::Static);
  // Execute; on failure closes and writes kExecError. A cut statement is not run.
  bool Execute(const Statement& sql);
  // Closes and writes kExecError for `sql`, which failed as the connection's
  // error text says.
  bool FailExecution(const Statement& sql);
  // The caller's own statement text, run as given: its session is not pooled
  // afterwards, since the text may have changed it.
  bool QueryCallerText(const char* sql,
                       DbConnection::Cursor cursor = DbConnection::Cursor::Static) {
    db_.DoNotPool();
    return Query({sql}, cursor);
  }
  bool ExecuteCallerText(const char* sql) {
    db_.DoNotPool();
    return Execute({sql});
  }
  // A message without arguments; `step` counts the serials after the first
  // of a message the export numbers more than once.
  uint32_t Fail(Serial serial, int step = 0);
  // kOpenTable or kCreateSql with the statement.
  uint32_t Fail(Serial serial, const Statement& sql);
  // kGetField with the column number.
  uint32_t FailField(int column, int step = 0);

  uint32_t failure() const { return code_.failure; }
  DbConnection& db() { return db_; }
  DbKind kind() const { return db_.kind(); }

 private:
  uint32_t Write(int serial, const char* format, ...) __attribute__((format(printf, 3, 4)));

  const ExportCode& code_;
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

// An export in the frame: body(call) under Guarded with the row's failure value.
template <class Body>
uint32_t RunExport(const ExportCode& code, Body&& body) noexcept {
  return Guarded<uint32_t>(code.failure, [&]() -> uint32_t {
    ExportCall call(code);
    return body(call);
  });
}

// The export's "invalid parameter" failure, before any statement.
inline uint32_t RefuseInvalidParameter(const ExportCode& code) noexcept {
  return RunExport(code, [](ExportCall& call) { return call.InvalidParameter(); });
}

}  // namespace scadastore
