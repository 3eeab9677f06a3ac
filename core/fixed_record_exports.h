// Export bodies shared by the families whose rows are fixed-size records
// (alarms and logs): each such export is one call of these with its code,
// its statements and its row reader.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/batch_insert.h"
#include "core/common_statements.h"
#include "core/export_call.h"
#include "core/row_reader.h"
#include "core/table_creation.h"
#include "scadastore.h"

namespace scadastore {

// *EnsureTableExist: 0 when the table exists or its creation was tried.
uint32_t EnsureTableExport(CallerToken token, const char* table, TableStatement create,
                           const char* timeColumn);
// *GetLastID: the largest id, 0 on failure.
uint32_t LargestIdExport(const ExportCode& code, CallerToken token, const char* table);
// almGetAlarmCount, logGetLogCount: the row count, 0 on failure.
uint32_t CountExport(const ExportCode& code, CallerToken token, const char* table);
// almDeleteAlarm, logDeleteLog: runs the caller's statement.
uint32_t CallerStatementExport(const ExportCode& code, CallerToken token, const char* table,
                               const char* sql);

// Stores size / recordSize records under the ids after the table's largest:
// several in one transaction with their values bound, as multi-row inserts
// where the kind has them; when that fails for the data, one insert each in
// the session's commit mode, so that those before a refused one stay. Without
// a known largest id nothing is written, and that is no failure.
uint32_t WriteRecordsExport(const ExportCode& code, CallerToken token, const char* table,
                            const void* records, uint32_t size, uint32_t recordSize,
                            uint32_t largestIdBuffer, const FixedRecordInserts& inserts);

// Fills the caller's buffer with the rows of lowest id, readRow(db, record)
// each; the buffer is cleared only once the select ran, so a failed call
// leaves it as it was.
template <class ReadRow>
uint32_t ReadAllExport(const ExportCode& code, CallerToken token, const char* table, void* buffer,
                       uint32_t size, uint32_t recordSize, ReadRow&& readRow) {
  return RunExport(code, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !buffer || size < recordSize) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(SelectAllStatement(call.kind(), table))) return call.failure();
    DbConnection& db = call.db();
    const uint32_t rows = std::min(db.CountRows(), size / recordSize);
    std::memset(buffer, 0, size);
    auto* bytes = static_cast<unsigned char*>(buffer);
    ReadRows(db, rows, [&](uint32_t i) {
      readRow(db, bytes + size_t{i} * recordSize);
      return true;
    });
    return 0;
  });
}

// Runs `select` on the open call and hands its rows out as a block of
// recordSize bytes per row, readRow(db, record) each; an empty result hands
// out a null block and size 0.
template <class Record, class ReadRow>
uint32_t HandOutRows(ExportCall& call, const Statement& select, uint32_t recordSize,
                     ReadRow&& readRow, Record** records, uint32_t* size) {
  if (!call.Query(select, DbConnection::Cursor::ForwardOnly)) return call.failure();
  DbConnection& db = call.db();
  RowBlock result = ReadRowBlock(db, recordSize, [&](unsigned char* record, uint32_t) {
    readRow(db, record);
    // A row the driver could not fetch ends the rows, as a failed fetch does.
    return !db.RowFailed();
  });
  if (result.status == RowBlock::Status::ReadFailed) FinishRowBlock(result, recordSize);
  if (result.status == RowBlock::Status::NoMemory) return call.Fail(Serial::kAllocMemory);
  *records = reinterpret_cast<Record*>(result.block.release());
  *size = result.rows * recordSize;
  return 0;
}

}  // namespace scadastore
