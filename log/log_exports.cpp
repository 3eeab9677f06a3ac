// The log* exports: each a short sequence of connection operations around the
// statement builders, in the frame of ExportCall.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/common_statements.h"
#include "core/export_call.h"
#include "core/row_reader.h"
#include "core/table_creation.h"
#include "log/log_record.h"
#include "log/log_statements.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::log;

extern "C" {

uint32_t logEnsureTableExist(CallerToken token, const char* table) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    if (!token || !table) return 1;
    return EnsureTableExists(table, CreateTableStatement) ? 0 : 1;
  });
}

uint32_t logSetLog(CallerToken token, const char* table, const LogRecord* records,
                   uint32_t size) {
  return RunExport(Export::kLogSetLog, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || size < kLogRecordSize) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(LargestIdStatement(call.kind(), table, kLongBufferSize))) return call.failure();
    uint32_t id = 0;
    // Without a known highest id nothing is written, and that is no failure.
    if (!ReadSingleInteger(call.db(), id)) return 0;
    for (uint32_t k = 0; k < size / kLogRecordSize; ++k) {
      if (!call.Execute(InsertStatement(call.kind(), table, ++id, records + k)))
        return call.failure();
    }
    return 0;
  });
}

uint32_t logGetAllLog(CallerToken token, const char* table, LogRecord* buffer, uint32_t size) {
  return RunExport(Export::kLogGetAllLog, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !buffer || size < kLogRecordSize) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(SelectAllStatement(call.kind(), table))) return call.failure();
    DbConnection& db = call.db();
    const uint32_t rows = std::min(db.CountRows(), size / kLogRecordSize);
    // Cleared only now: a failed call leaves the caller's buffer as it was.
    std::memset(buffer, 0, size);
    ReadRows(db, rows, [&](uint32_t k) {
      ReadLogRecord(db, buffer + k);
      return true;
    });
    return 0;
  });
}

uint32_t logGetLogByTime(CallerToken token, const char* table, uint32_t startTime,
                         uint32_t endTime, LogRecord** records, uint32_t* size) {
  return RunExport(Export::kLogGetLogByTime, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || !size || startTime >= endTime)
      return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(TimeRangeStatement(call.kind(), table, startTime, endTime)))
      return call.failure();
    DbConnection& db = call.db();
    RowBlock result = ReadRowBlock(db, kLogRecordSize, [&](unsigned char* record, uint32_t) {
      ReadLogRecord(db, record);
      return true;
    });
    if (result.status == RowBlock::Status::NoMemory) return call.Fail(Serial::kAllocMemory);
    *records = reinterpret_cast<LogRecord*>(result.block.release());
    *size = result.rows * kLogRecordSize;
    return 0;
  });
}

uint32_t logGetLogCount(CallerToken token, const char* table) {
  return RunExport(Export::kLogGetLogCount, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(CountStatement(call.kind(), table))) return call.failure();
    uint32_t count = 0;
    ReadSingleInteger(call.db(), count);
    return count;
  });
}

uint32_t logGetLastID(CallerToken token, const char* table) {
  return RunExport(Export::kLogGetLastID, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(LargestIdStatement(call.kind(), table))) return call.failure();
    uint32_t lastId = 0;
    if (!ReadSingleInteger(call.db(), lastId)) return call.FailField(1);
    return lastId;
  });
}

uint32_t logDeleteLog(CallerToken token, const char* table, const char* sql) {
  return RunExport(Export::kLogDeleteLog, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !sql) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.ExecuteCallerText(sql) ? 0 : call.failure();
  });
}

}  // extern "C"
