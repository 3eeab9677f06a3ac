#include "core/export_call.h"

#include <cstdarg>

#include "core/format.h"
#include "core/last_error.h"

namespace scadastore {

bool ExportCall::Open() {
  if (db_.Open()) return true;
  Fail(2, "failed to open DSN: %s", Settings().dsn);
  return false;
}

bool ExportCall::Query(int serial, const std::string& sql) {
  if (db_.OpenQuery(sql.c_str())) return true;
  db_.Close();
  Fail(serial, "failed to open table: %s", sql.c_str());
  return false;
}

bool ExportCall::Execute(int serial, const std::string& sql) {
  if (db_.Execute(sql.c_str())) return true;
  db_.Close();
  Fail(serial, "exec error: %s, sql: %s", db_.ErrorText(), sql.c_str());
  return false;
}

void ExportCall::Fail(int serial, const char* format, ...) {
  char message[kLastErrorSize];
  va_list args;
  va_start(args, format);
  FormatBoundedV(message, sizeof message, format, args);
  va_end(args);
  SetCodedError(family_, number_, serial, "%s", message);
}

}  // namespace scadastore
