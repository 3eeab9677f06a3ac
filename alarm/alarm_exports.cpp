// The alm* exports: each a short sequence of connection operations around
// the statement builders, in the frame of ExportCall.
#include <algorithm>
#include <cstring>
#include <new>

#include "alarm/alarm_record.h"
#include "alarm/alarm_statements.h"
#include "core/common_statements.h"
#include "core/export_call.h"
#include "core/row_reader.h"
#include "core/table_creation.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::alarm;

extern "C" {

uint32_t almEnsureTableExist(CallerToken token, const char* table) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    if (!token || !table) return 1;
    return EnsureTableExists(table, CreateTableStatement) ? 0 : 1;
  });
}

uint32_t almSetAlarm(CallerToken token, const char* table, const AlarmRecord* records,
                     uint32_t size) {
  return RunExport(Export::kAlmSetAlarm, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || size < kRecordSize) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    // The max(id) result stays open beside the inserts.
    if (!call.Query(LargestIdStatement(call.kind(), table, kWriteBufferSize)))
      return call.failure();
    uint32_t nextId = 0;
    if (!ReadSingleInteger(call.db(), nextId)) return 0;
    const auto* bytes = reinterpret_cast<const unsigned char*>(records);
    for (uint32_t k = 0; k < size / kRecordSize; ++k) {
      const Statement insert =
          InsertStatement(call.kind(), table, ++nextId, bytes + size_t{k} * kRecordSize);
      if (!call.Execute(insert)) return call.failure();
    }
    return 0;
  });
}

uint32_t almConfirmAlarm(CallerToken token, const char* table, uint32_t id, uint32_t status) {
  return RunExport(Export::kAlmConfirmAlarm, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || id == 0) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.Execute(ConfirmStatement(call.kind(), table, status, id)) ? 0 : call.failure();
  });
}

uint32_t almSetRecoverAlarm(CallerToken token, const char* table, uint32_t id,
                            uint32_t recovertime) {
  return RunExport(Export::kAlmSetRecoverAlarm, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || id == 0) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.Execute(RecoverStatement(call.kind(), table, recovertime, id)) ? 0
                                                                                  : call.failure();
  });
}

uint32_t almDeleteAlarm(CallerToken token, const char* table, const char* sql) {
  return RunExport(Export::kAlmDeleteAlarm, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !sql) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.ExecuteCallerText(sql) ? 0 : call.failure();
  });
}

uint32_t almGetLastID(CallerToken token, const char* table) {
  return RunExport(Export::kAlmGetLastID, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(LargestIdStatement(call.kind(), table))) return call.failure();
    uint32_t largest = 0;
    if (!ReadSingleInteger(call.db(), largest)) return call.FailField(1);
    return largest;
  });
}

uint32_t almGetAllAlarm(CallerToken token, const char* table, AlarmRecord* records,
                        uint32_t size) {
  return RunExport(Export::kAlmGetAllAlarm, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || size < kRecordSize) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(SelectAllStatement(call.kind(), table))) return call.failure();
    DbConnection& db = call.db();
    const uint32_t rows = std::min(db.CountRows(), size / kRecordSize);
    // Cleared only now: a failed call leaves the caller's buffer as it was.
    std::memset(records, 0, size);
    auto* bytes = reinterpret_cast<unsigned char*>(records);
    double value = 0.0;
    ReadRows(db, rows, [&](uint32_t i) {
      ReadAlarmRow(db, bytes + size_t{i} * kRecordSize, value);
      return true;
    });
    return 0;
  });
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
    if (!call.Query({sql})) return call.failure();
    DbConnection& db = call.db();
    double value = 0.0;
    RowBlock result = ReadRowBlock(db, kRecordSize, [&](unsigned char* record, uint32_t) {
      ReadAlarmRow(db, record, value);
      return true;
    });
    if (result.status == RowBlock::Status::NoMemory) return call.Fail(Serial::kAllocMemory);
    *records = reinterpret_cast<AlarmRecord*>(result.block.release());
    *size = result.rows * kRecordSize;
    return 0;
  });
}

uint32_t almGetAlarmCount(CallerToken token, const char* table) {
  return RunExport(Export::kAlmGetAlarmCount, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(CountStatement(call.kind(), table))) return call.failure();
    uint32_t count = 0;
    ReadSingleInteger(call.db(), count);
    return count;
  });
}

}  // extern "C"
