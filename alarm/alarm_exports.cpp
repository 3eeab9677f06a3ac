// The alm* exports in the order of their codes: the fixed-record bodies of
// core/fixed_record_exports.h over the alarm statements and row reader, and
// the alarm's own updates and query.
#include <new>

#include "alarm/alarm_record.h"
#include "alarm/alarm_statements.h"
#include "core/bytes.h"
#include "core/fixed_record_exports.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::alarm;

namespace {

// almConfirmAlarm and almSetRecoverAlarm: one column of the alarm `id`.
using UpdateBuilder = Statement (*)(DbKind kind, const char* table, uint32_t value, uint32_t id);

uint32_t UpdateExport(const ExportCode& code, CallerToken token, const char* table, uint32_t id,
                      uint32_t value, UpdateBuilder update) {
  return RunExport(code, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || id == 0) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.Execute(update(call.kind(), table, value, id)) ? 0 : call.failure();
  });
}

}  // namespace

extern "C" {

uint32_t almSetAlarm(CallerToken token, const char* table, const AlarmRecord* records,
                     uint32_t size) {
  if (records && !EveryRecord(records, size, kRecordSize, Writable))
    return RefuseInvalidParameter(Export::kAlmSetAlarm);
  return WriteRecordsExport(Export::kAlmSetAlarm, token, table, records, size, kRecordSize,
                            kWriteBufferSize, kInserts);
}

uint32_t almGetAllAlarm(CallerToken token, const char* table, AlarmRecord* records,
                        uint32_t size) {
  double value = 0.0;
  return ReadAllExport(Export::kAlmGetAllAlarm, token, table, records, size, kRecordSize,
                       [&](DbConnection& db, void* record) { ReadAlarmRow(db, record, value); });
}

uint32_t almGetAlarmByQuery(CallerToken token, const char* table, const AlarmQuery* query,
                            AlarmRecord** records, uint32_t* size) {
  return RunExport(Export::kAlmGetAlarmByQuery, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !query || !records || !size) return call.InvalidParameter();
    *size = 0;
    Statement sql;
    try {
      sql = QueryStatement(call.kind(), table, query);
    } catch (const std::bad_alloc&) {
      return call.Fail(Serial::kAllocMemory);
    }
    if (!call.Open()) return call.failure();
    double value = 0.0;
    return HandOutRows(
        call, sql, kRecordSize,
        [&](DbConnection& db, void* record) { ReadAlarmRow(db, record, value); }, records, size);
  });
}

uint32_t almGetAlarmCount(CallerToken token, const char* table) {
  return CountExport(Export::kAlmGetAlarmCount, token, table);
}

uint32_t almConfirmAlarm(CallerToken token, const char* table, uint32_t id, uint32_t status) {
  return UpdateExport(Export::kAlmConfirmAlarm, token, table, id, status, ConfirmStatement);
}

uint32_t almDeleteAlarm(CallerToken token, const char* table, const char* sql) {
  return CallerStatementExport(Export::kAlmDeleteAlarm, token, table, sql);
}

uint32_t almGetLastID(CallerToken token, const char* table) {
  return LargestIdExport(Export::kAlmGetLastID, token, table);
}

uint32_t almSetRecoverAlarm(CallerToken token, const char* table, uint32_t id,
                            uint32_t recovertime) {
  return UpdateExport(Export::kAlmSetRecoverAlarm, token, table, id, recovertime,
                      RecoverStatement);
}

uint32_t almEnsureTableExist(CallerToken token, const char* table) {
  return EnsureTableExport(token, table, CreateTableStatement, "arisetime");
}

}  // extern "C"
