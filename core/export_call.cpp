#include "core/export_call.h"

#include <cstdarg>

#include "core/format.h"
#include "core/last_error.h"
#include "core/spool.h"
#include "core/spool_write.h"

namespace scadastore {

uint32_t ExportCall::InvalidParameter() {
  return Write(code_.serials.Of(Serial::kInvalidParameter), "invalid parameter");
}

bool ExportCall::Open() {
  if (Spool* spool = ActiveSpool()) spool->Forward(kForwardSlice);
  if (db_.Open()) return true;
  Write(code_.serials.Of(Serial::kOpenDsn), "failed to open DSN: %s", Settings().dsn);
  return false;
}

uint32_t ExportCall::FailSpool(const std::string& reason) {
  return Write(code_.serials.Of(Serial::kOpenDsn), "failed to open DSN: %s; %s", Settings().dsn,
               reason.c_str());
}

uint32_t KeepWrite(ExportCall& call, KeptWrite write, const WriteProgress& progress,
                   const char* why) {
  Spool* spool = ActiveSpool();
  if (spool == nullptr) return call.FailSpool("spool: " + SpoolError());
  if (write.recordSize == 0) return call.Fail(Serial::kCreateSql);
  write.records.erase(0, size_t{progress.stored} * write.recordSize);
  write.sentId = progress.sentId;
  write.sentCount = progress.sentCount;
  std::string error;
  if (spool->Keep({write}, *why ? why : "earlier writes wait", error)) return 0;
  return call.FailSpool(error);
}

bool ExportCall::Query(const Statement& sql, DbConnection::Cursor cursor) {
  if (sql.complete && db_.OpenQuery(sql.Sent().c_str(), sql.texts, cursor)) return true;
  db_.Close();
  Fail(Serial::kOpenTable, sql);
  return false;
}

bool ExportCall::Execute(const Statement& sql) {
  const int serial = code_.serials.Of(Serial::kExecError);
  if (!sql.complete) {
    db_.Close();
    Write(serial, "exec error: not run, cut at %u characters, sql: %s",
          static_cast<unsigned>(sql.text.size()),
          sql.text.c_str());
    return false;
  }
  return db_.Execute(sql.Sent().c_str(), sql.texts) || FailExecution(sql);
}

bool ExportCall::FailExecution(const Statement& sql) {
  db_.Close();
  Write(code_.serials.Of(Serial::kExecError), "exec error: %s, sql: %s", db_.ErrorText(),
        sql.text.c_str());
  return false;
}

uint32_t ExportCall::Fail(Serial serial, int step) {
  const int number = code_.serials.Of(serial) + step;
  switch (serial) {
    case Serial::kAllocMemory: return Write(number, "failed to alloc memory");
    case Serial::kCreateSql: return Write(number, "failed to create sql");
    case Serial::kNoRecord: return Write(number, "no record");
    case Serial::kInvalidTable: return Write(number, "invalid Norvak data table");
    case Serial::kIndexPastEnd: return Write(number, "invalid parameter");
    default: return Write(number, "failed");  // the others carry arguments
  }
}

uint32_t ExportCall::Fail(Serial serial, const Statement& sql) {
  const char* format =
      serial == Serial::kOpenTable ? "failed to open table: %s" : "failed to create sql: %s";
  return Write(code_.serials.Of(serial), format, sql.text.c_str());
}

uint32_t ExportCall::FailField(int column, int step) {
  return Write(code_.serials.Of(Serial::kGetField) + step, "failed to get field %d", column);
}

uint32_t ExportCall::Write(int serial, const char* format, ...) {
  char message[kLastErrorSize];
  va_list args;
  va_start(args, format);
  FormatBoundedV(message, sizeof message, format, args);
  va_end(args);
  SetCodedError(code_.family, code_.number, serial, "%s", message);
  return code_.failure;
}

}  // namespace scadastore
