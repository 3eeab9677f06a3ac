// The sg* exports that create, write, read and delete data records: each a
// short sequence of connection operations around the record statements.
#include <optional>

#include "core/export_call.h"
#include "core/format.h"
#include "core/row_reader.h"
#include "record/data_layout.h"
#include "record/record_statements.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::record;

namespace {

// Serials of "failed to get field %d": the first is the id's, the others
// follow in RecordPart order.
constexpr int kGetRecordFieldSerial = 6;
constexpr int kByTimeFieldSerial = 6;
constexpr int kByIndexFieldSerial = 5;

void FailRead(ExportCall& call, int firstSerial, const ReadFailure& failure) {
  call.Fail(firstSerial + static_cast<int>(failure.part), "failed to get field %d", failure.column);
}

// The next id of a table, its largest id plus 1, read on the call's open connection.
bool NextId(ExportCall& call, int querySerial, int readSerial, const std::string& table,
            uint32_t& nextId) {
  if (!call.Query(querySerial, LargestIdStatement(call.dialect(), table))) return false;
  uint32_t largest = 0;
  if (!ReadSingleInteger(call.db(), largest)) {
    call.Fail(readSerial, "failed to get field %d", 1);
    return false;
  }
  nextId = largest + 1;
  return true;
}

// The result's columns must be the four fixed ones and one per value column,
// and the records must hold the values.
bool MatchesTable(DbConnection& db, const TableLayout& table) {
  return db.ColumnCount() == static_cast<int>(table.columns.size()) + 4 && table.HoldsValues();
}

// Moves from the first row to the row at `index` (from 1).
void MoveToPosition(DbConnection& db, uint32_t index) {
  db.MoveFirst();
  for (uint32_t step = 1; step < index; ++step) db.MoveNext();
}

}  // namespace

extern "C" {

uint32_t sgEnsureTableExist(CallerToken token, const DataTableInfo* table, char* errorText,
                            int errorTextSize) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    if (!token || !table) return 1;
    const TableLayout layout = DescribeTable(*table);
    DbConnection db;
    if (db.TableExists(layout.name.c_str())) return 0;
    if (!db.Open()) return 1;
    const bool created = db.Execute(CreateTableStatement(db.kind(), layout).c_str()) != 0;
    if (created && CreatesIndex(db.kind())) {
      db.Execute(CreateIndexStatement(db.dialect(), layout.name).c_str());
    } else if (errorText) {
      // An errorTextSize outside 1 .. 2^31 - 1 is refused by FormatBounded.
      FormatBounded(errorText, static_cast<uint32_t>(errorTextSize), "%s", db.ErrorText());
    }
    return 0;
  });
}

uint32_t sgSetRecord(CallerToken token, const DataTableInfo* table, const DataRecord* record,
                     uint32_t size) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 1);
    if (!token || !table || !record || size <= kRecordHeadSize) return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    const TableLayout layout = DescribeTable(*table);
    uint32_t id = 0;
    if (!NextId(call, 3, 5, layout.name, id)) return 1;
    const Statement insert = InsertStatement(call.dialect(), layout, record, size, id);
    if (!insert.complete) return call.Fail(6, "failed to create sql: %s", insert.text.c_str()), 1;
    return call.Execute(4, insert.text) ? 0 : 1;
  });
}

uint32_t sgBatchSetRecord(CallerToken token, const DataTableInfo* table, const void* buffer,
                          uint32_t size) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 17);
    if (!token || !table || !buffer || size <= kRecordHeadSize || !AllowsBatches(call.kind()))
      return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    const TableLayout layout = DescribeTable(*table);
    uint32_t firstId = 0;
    if (!NextId(call, 3, 6, layout.name, firstId)) return 1;
    const std::string batch = BatchStatement(call.kind(), layout, buffer, size, firstId);
    if (batch.empty()) return call.Fail(4, "failed to create sql"), 1;
    return call.Execute(5, batch) ? 0 : 1;
  });
}

uint32_t sgModifyRecordByIndex(CallerToken token, const DataTableInfo* table, uint32_t index,
                               const DataRecord* record, uint32_t size) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 11);
    if (!token || !table || !record || index == 0 || size != table->recordSize)
      return call.InvalidParameter(), 1;
    const uint32_t id = sgGetIdByIndex(token, table, index);
    if (id == 0) return 1;
    if (!call.Open()) return 1;
    const Statement update = UpdateStatement(call.dialect(), DescribeTable(*table), record, id);
    if (!update.complete) return call.Fail(4, "failed to create sql: %s", update.text.c_str()), 1;
    return call.Execute(3, update.text) ? 0 : 1;
  });
}

uint32_t sgOperateRecord(CallerToken token, const DataTableInfo* table, const char* sql) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 16);
    if (!token || !table || !sql) return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    return call.Execute(3, sql) ? 0 : 1;
  });
}

uint32_t sgDeleteRecord(CallerToken token, const DataTableInfo* table, const char* sql) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 8);
    if (!token || !table) return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    const std::string statement =
        sql && *sql ? std::string(sql)
                    : DeleteAllStatement(call.dialect(), std::string(TableName(table)));
    return call.Execute(3, statement) ? 0 : 1;
  });
}

uint32_t sgDeleteRecordByIndex(CallerToken token, const DataTableInfo* table, uint32_t index) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 12);
    if (!token || !table || index == 0) return call.InvalidParameter(), 1;
    const uint32_t id = sgGetIdByIndex(token, table, index);
    if (id == 0) return 1;
    if (!call.Open()) return 1;
    const std::string name(TableName(table));
    return call.Execute(3, DeleteByIdStatement(call.dialect(), name, id)) ? 0 : 1;
  });
}

uint32_t sgGetRecord(CallerToken token, const DataTableInfo* table, void** records,
                     uint32_t* size, const char* sql) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 2);
    if (!token || !table || !records || !size) return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    const TableLayout layout = DescribeTable(*table);
    const std::string statement =
        sql && *sql ? std::string(sql)
                    : WholeTableStatement(call.dialect(), layout.name, kWholeTableStatementSize);
    if (!call.Query(3, statement)) return 1;
    DbConnection& db = call.db();
    if (!MatchesTable(db, layout)) return call.Fail(4, "invalid Norvak data table"), 1;
    std::optional<ReadFailure> failure;
    RowBlock result = ReadRowBlock(db, layout.recordSize, [&](unsigned char* record, uint32_t) {
      failure = ReadRecord(db, layout.columns, record);
      return !failure;
    });
    switch (result.status) {
      case RowBlock::Status::Empty:
        *records = nullptr;
        *size = 0;
        return 0;
      case RowBlock::Status::NoMemory:
        return call.Fail(5, "failed to alloc memory"), 1;
      case RowBlock::Status::ReadFailed:
        return FailRead(call, kGetRecordFieldSerial, *failure), 1;
      case RowBlock::Status::Read:
        break;
    }
    *records = result.block.release();
    *size = result.rows * layout.recordSize;
    return 0;
  });
}

uint32_t sgGetAllRecordOfInterval(CallerToken token, const DataTableInfo* table,
                                  uint32_t startTime, uint32_t endTime, void** records,
                                  uint32_t* size) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 3);
    if (!token || !table || !records || !size || startTime >= endTime) return call.InvalidParameter(), 1;
    const std::string statement =
        IntervalStatement(call.dialect(), std::string(TableName(table)), startTime, endTime);
    return sgGetRecord(token, table, records, size, statement.c_str());
  });
}

uint32_t sgGetRecordByTime(CallerToken token, const DataTableInfo* table, uint32_t startTime,
                           DataRecord* record, uint32_t size) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 4);
    if (!token || !table || !record || size != table->recordSize)
      return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    const TableLayout layout = DescribeTable(*table);
    if (!call.Query(3, IntervalStatement(call.dialect(), layout.name, startTime, startTime + 59)))
      return 1;
    DbConnection& db = call.db();
    if (!MatchesTable(db, layout)) return call.Fail(4, "invalid Norvak data table"), 1;
    if (db.CountRows() == 0) return call.Fail(5, "no record"), 1;
    db.MoveFirst();
    if (auto failure = ReadRecord(db, layout.columns, record))
      return FailRead(call, kByTimeFieldSerial, *failure), 1;
    return 0;
  });
}

uint32_t sgGetIdByIndex(CallerToken token, const DataTableInfo* table, uint32_t index) {
  return Guarded<uint32_t>(0, [&]() -> uint32_t {
    ExportCall call("rcd", 9);
    if (!token || !table || index == 0) return call.InvalidParameter(), 0;
    if (!call.Open()) return 0;
    if (!call.Query(3, IdsStatement(call.dialect(), std::string(TableName(table))))) return 0;
    DbConnection& db = call.db();
    if (index > db.CountRows()) return call.Fail(4, "invalid parameter"), 0;
    MoveToPosition(db, index);
    uint32_t id = 0;
    if (!db.GetInteger(1, &id, sizeof id)) return call.Fail(5, "failed to get field %d", 1), 0;
    return id;
  });
}

uint32_t sgGetRecordByIndex(CallerToken token, const DataTableInfo* table, uint32_t index,
                            DataRecord* record, uint32_t size) {
  return Guarded<uint32_t>(1, [&]() -> uint32_t {
    ExportCall call("rcd", 10);
    if (!token || !table || !record || index == 0 || size != table->recordSize)
      return call.InvalidParameter(), 1;
    const TableLayout layout = DescribeTable(*table);
    // Without a layout check, a recordSize too small for the values would be written past.
    if (!layout.HoldsValues()) return call.InvalidParameter(), 1;
    if (!call.Open()) return 1;
    if (!call.Query(3, WholeTableStatement(call.dialect(), layout.name, kShortStatementSize)))
      return 1;
    DbConnection& db = call.db();
    if (index > db.CountRows()) return call.Fail(4, "invalid parameter"), 1;
    MoveToPosition(db, index);
    if (auto failure = ReadRecord(db, layout.columns, record))
      return FailRead(call, kByIndexFieldSerial, *failure), 1;
    return 0;
  });
}

uint32_t sgGetRecordCount(CallerToken token, const DataTableInfo* table) {
  constexpr uint32_t kFailed = 0xFFFFFFFFu;
  return Guarded<uint32_t>(kFailed, [&]() -> uint32_t {
    ExportCall call("rcd", 13);
    if (!token || !table) return call.InvalidParameter(), kFailed;
    if (!call.Open()) return kFailed;
    if (!call.Query(3, CountStatement(call.dialect(), std::string(TableName(table)))))
      return kFailed;
    uint32_t count = 0;
    if (!ReadSingleInteger(call.db(), count))
      return call.Fail(4, "failed to get field %d", 1), kFailed;
    return count;
  });
}

}  // extern "C"
