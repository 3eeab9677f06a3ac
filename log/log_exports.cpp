// The log* exports in the order of their codes: the fixed-record bodies of
// core/fixed_record_exports.h over the log statements and row reader.
#include "core/bytes.h"
#include "core/fixed_record_exports.h"
#include "log/log_record.h"
#include "log/log_statements.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::log;

extern "C" {

uint32_t logSetLog(CallerToken token, const char* table, const LogRecord* records,
                   uint32_t size) {
  if (records && !EveryRecord(records, size, kLogRecordSize, Writable))
    return RefuseInvalidParameter(Export::kLogSetLog);
  return WriteRecordsExport(Export::kLogSetLog, token, table, records, size, kLogRecordSize,
                            kLongBufferSize, kInserts);
}

uint32_t logGetAllLog(CallerToken token, const char* table, LogRecord* buffer, uint32_t size) {
  return ReadAllExport(Export::kLogGetAllLog, token, table, buffer, size, kLogRecordSize,
                       ReadLogRecord);
}

uint32_t logGetLogByTime(CallerToken token, const char* table, uint32_t startTime,
                         uint32_t endTime, LogRecord** records, uint32_t* size) {
  return RunExport(Export::kLogGetLogByTime, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || !size || startTime >= endTime)
      return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return HandOutRows(call, TimeRangeStatement(call.kind(), table, startTime, endTime),
                       kLogRecordSize, ReadLogRecord, records, size);
  });
}

uint32_t logGetLogCount(CallerToken token, const char* table) {
  return CountExport(Export::kLogGetLogCount, token, table);
}

uint32_t logGetLastID(CallerToken token, const char* table) {
  return LargestIdExport(Export::kLogGetLastID, token, table);
}

uint32_t logDeleteLog(CallerToken token, const char* table, const char* sql) {
  return CallerStatementExport(Export::kLogDeleteLog, token, table, sql);
}

uint32_t logEnsureTableExist(CallerToken token, const char* table) {
  return EnsureTableExport(token, table, CreateTableStatement, "logtime");
}

}  // extern "C"
