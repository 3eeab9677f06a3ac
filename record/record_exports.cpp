// The sg* exports that create, write, read and delete data records: each a
// short sequence of connection operations around the record statements.
#include <algorithm>
#include <optional>

#include "core/batch_insert.h"
#include "core/bytes.h"
#include "core/common_statements.h"
#include "core/export_call.h"
#include "core/format.h"
#include "core/insert_retry.h"
#include "core/row_reader.h"
#include "core/spool_write.h"
#include "core/table_creation.h"
#include "record/caller_pages.h"
#include "record/data_layout.h"
#include "record/record_statements.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::record;

namespace {

// A failed read of a record: the first getField serial is the id's, the
// others follow in RecordPart order.
uint32_t FailRead(ExportCall& call, const ReadFailure& failure) {
  return call.FailField(failure.column, static_cast<int>(failure.part));
}

// The next id of a table, its largest id plus 1, read on the call's open
// connection; `count` new ids must stay within 4294967295.
bool NextId(ExportCall& call, const std::string& table, uint32_t count, uint32_t& nextId) {
  if (!call.Query(LargestIdStatement(call.kind(), table, kLookupStatementSize))) return false;
  uint32_t largest = 0;
  if (!ReadSingleInteger(call.db(), largest)) {
    call.FailField(1);
    return false;
  }
  if (count > UINT32_MAX - largest) {
    call.InvalidParameter();
    return false;
  }
  nextId = largest + 1;
  return true;
}

// Each whole record of `records` writable, where the records hold their values.
bool WritableRecords(const TableLayout& table, const void* records, uint32_t size) {
  return !table.HoldsValues() || EveryRecord(records, size, table.recordSize, [&](const void* record) {
    return Writable(table.columns, record);
  });
}

// The result's columns must be the four fixed ones and one per value column,
// and the records must hold the values.
bool MatchesTable(DbConnection& db, const TableLayout& table) {
  return db.ColumnCount() == static_cast<int>(table.columns.size()) + 4 && table.HoldsValues();
}

// Runs a select of the table's rows. On SQLite a select whose columns match
// the table (asked with "limit 0", which runs nothing) runs under an outer
// select that hands every float over exactly; any other runs as given.
bool QueryRecords(ExportCall& call, const TableLayout& table, const Statement& select,
                  DbConnection::Cursor cursor = DbConnection::Cursor::Static) {
  DbConnection& db = call.db();
  const std::string& inner = select.Sent();
  return (select.complete && db.OnSqlite() &&
          db.TryOpenQuery(("select * from (" + inner + ") limit 0").c_str(), select.texts) &&
          MatchesTable(db, table) &&
          db.TryOpenQuery(ExactFloatsSelect(table, inner).c_str(), select.texts, cursor)) ||
         call.Query(select, cursor);
}

enum class Pages { NotPaged, Read, OpenFailed, NotTheTable };

// Reads the rows of `select` (the table's own whole or interval select) in
// pages by id inside one repeatable-read transaction: every page sees the
// table as the first did, and the driver holds one page at a time. NotPaged,
// having read nothing, where the kind or the table cannot be read so.
template <class ReadRow>
Pages ReadPages(DbConnection& db, const TableLayout& layout, const Statement& select,
                RowBlock& result, ReadRow& readRow) {
  if (!ReadsInPages(db.kind()) || !select.complete) return Pages::NotPaged;
  Transaction snapshot(db);
  // The check is the transaction's first read: it sees the rows the pages see.
  const Statement pageable = PageableStatement(db.kind(), layout.name);
  uint32_t isPageable = 0;
  if (!snapshot.open() || !db.Execute("set transaction isolation level repeatable read") ||
      !db.TryOpenQuery(pageable.Sent().c_str(), pageable.texts) ||
      !ReadSingleInteger(db, isPageable) || isPageable != 1)
    return Pages::NotPaged;
  std::optional<uint32_t> afterId;
  for (uint32_t pageRows = kFirstPageRows;; pageRows = std::max(kFirstPageRows, result.rows / 4)) {
    const Statement page = PageStatement(db.kind(), layout.name, select, afterId, pageRows);
    if (!db.OpenQuery(page.Sent().c_str(), page.texts, DbConnection::Cursor::ForwardOnly))
      return Pages::OpenFailed;
    if (!MatchesTable(db, layout)) return Pages::NotTheTable;
    const uint32_t before = result.rows;
    if (!AppendRows(db, result, layout.recordSize, readRow)) return Pages::Read;
    if (result.rows - before < pageRows) break;
    afterId = LoadField<uint32_t>(result.block.get() + size_t{result.rows - 1} * layout.recordSize, 0);
    db.CloseQuery();
  }
  FinishRowBlock(result, layout.recordSize);
  return Pages::Read;
}

// Reads the rows of the caller's `select` in the pages of `pages` where it
// keeps them, or whole where it ran once; NotPaged, with no result open,
// where it is to run as given.
template <class ReadRow>
Pages ReadCallersPages(CallerPages& pages, const TableLayout& layout, const Statement& select,
                       RowBlock& result, ReadRow& readRow) {
  DbConnection& db = pages.db();
  switch (pages.Keep(select.text.c_str())) {
    case CallerPages::Kept::No: return Pages::NotPaged;
    case CallerPages::Kept::Failed: return Pages::OpenFailed;
    case CallerPages::Kept::Whole:
    case CallerPages::Kept::Yes: break;
  }
  if (!MatchesTable(db, layout)) return Pages::NotTheTable;
  do {
    if (!AppendRows(db, result, layout.recordSize, readRow)) return Pages::Read;
  } while (pages.NextPage(result.rows));
  if (pages.failed()) return Pages::OpenFailed;
  FinishRowBlock(result, layout.recordSize);
  return Pages::Read;
}

// sgGetRecord after its argument check: the rows of `statement` as one block.
uint32_t ReadBlock(ExportCall& call, const DataTableInfo& table, const Statement& statement,
                   bool callersStatement, void** records, uint32_t* size) {
  if (!call.Open()) return call.failure();
  if (callersStatement) call.db().DoNotPool();
  const TableLayout layout = DescribeTable(table);
  DbConnection& db = call.db();
  std::optional<ReadFailure> failure;
  auto readRow = [&](unsigned char* record, uint32_t) {
    failure = ReadRecord(db, layout.columns, record);
    return !failure;
  };
  RowBlock result;
  CallerPages callerPages(db);
  switch (callersStatement ? ReadCallersPages(callerPages, layout, statement, result, readRow)
                           : ReadPages(db, layout, statement, result, readRow)) {
    case Pages::NotPaged:
      if (!QueryRecords(call, layout, statement, DbConnection::Cursor::ForwardOnly))
        return call.failure();
      if (!MatchesTable(db, layout)) return call.Fail(Serial::kInvalidTable);
      if (AppendRows(db, result, layout.recordSize, readRow)) FinishRowBlock(result, layout.recordSize);
      break;
    case Pages::OpenFailed: return call.Fail(Serial::kOpenTable, statement);
    case Pages::NotTheTable: return call.Fail(Serial::kInvalidTable);
    case Pages::Read: break;
  }
  switch (result.status) {
    case RowBlock::Status::Empty:
      *records = nullptr;
      *size = 0;
      return 0;
    case RowBlock::Status::NoMemory: return call.Fail(Serial::kAllocMemory);
    case RowBlock::Status::ReadFailed: return FailRead(call, *failure);
    case RowBlock::Status::Read:
      break;
  }
  *records = result.block.release();
  *size = result.rows * layout.recordSize;
  return 0;
}

// `count` records under the ids from `firstId`, stored all or none; a failure
// names the statement of the records that failed as BatchStatement shows it.
bool InsertBatch(ExportCall& call, const TableLayout& layout, const unsigned char* records,
                 uint32_t count, uint32_t firstId) {
  const BoundRows rows = BatchRows(call.kind(), layout, records, firstId);
  uint32_t failedFrom = 0;
  if (InsertAllOrNone(call.db(), rows, count, failedFrom)) return true;
  const uint32_t shown = std::min(RowsPerStatement(rows.parametersPerRow), count - failedFrom);
  return call.FailExecution(BatchStatement(call.kind(), layout,
                                           records + size_t{failedFrom} * layout.recordSize,
                                           shown * layout.recordSize, firstId + failedFrom));
}

// A data-table write as the spool keeps it; recordSize 0 when its records
// cannot be written at all.
KeptWrite RecordWrite(WriteFamily family, const DataTableInfo* table, const TableLayout& layout,
                      const void* records, uint32_t size) {
  const size_t infoSize = sizeof(DataTableInfo) + size_t{table->columnCount} * sizeof(ColumnInfo);
  const uint32_t recordSize = family == WriteFamily::kRecord ? size : table->recordSize;
  const bool writable = layout.HoldsValues() && recordSize == table->recordSize &&
                        recordSize > 0 && recordSize <= size;
  const size_t bytes = writable ? size - size % recordSize : 0;
  return {family, std::string(reinterpret_cast<const char*>(table), infoSize),
          writable ? recordSize : 0, std::string(static_cast<const char*>(records), bytes)};
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
    const bool created = db.Execute(CreateTableStatement(db.kind(), layout).text.c_str()) != 0;
    if (created && CreatesIndex(db.kind())) {
      CreateIndexes(db, layout.name, "time", kLookupStatementSize);
    } else if (errorText) {
      // An errorTextSize outside 1 .. 2^31 - 1 is refused by FormatBounded.
      FormatBounded(errorText, static_cast<uint32_t>(errorTextSize), "%s", db.ErrorText());
    }
    return 0;
  });
}

uint32_t sgSetRecord(CallerToken token, const DataTableInfo* table, const DataRecord* record,
                     uint32_t size) {
  return RunExport(Export::kSgSetRecord, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !record || size <= kRecordHeadSize) return call.InvalidParameter();
    const TableLayout layout = DescribeTable(*table);
    if (!WritableRecords(layout, record, size)) return call.InvalidParameter();
    const auto kept = [&] { return RecordWrite(WriteFamily::kRecord, table, layout, record, size); };
    return WriteOrKeep(call, kept, [&](WriteProgress& progress) -> uint32_t {
      if (!call.Open()) return call.failure();
      return InsertWithFreshIds(call, [&] {
        uint32_t id = 0;
        if (!NextId(call, layout.name, 1, id)) return false;
        const Statement insert = InsertStatement(call.kind(), layout, record, size, id);
        if (!insert.complete) return call.Fail(Serial::kCreateSql, insert), false;
        progress = {0, 1, id};
        return call.Execute(insert);
      }) ? 0 : call.failure();
    });
  });
}

uint32_t sgBatchSetRecord(CallerToken token, const DataTableInfo* table, const void* buffer,
                          uint32_t size) {
  return RunExport(Export::kSgBatchSetRecord, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !buffer || size <= kRecordHeadSize || !AllowsBatches(call.kind()))
      return call.InvalidParameter();
    const TableLayout layout = DescribeTable(*table);
    if (!WritableRecords(layout, buffer, size)) return call.InvalidParameter();
    const uint32_t count = layout.recordSize == 0 ? 0 : size / layout.recordSize;
    const auto kept = [&] { return RecordWrite(WriteFamily::kBatch, table, layout, buffer, size); };
    return WriteOrKeep(call, kept, [&](WriteProgress& progress) -> uint32_t {
      if (!call.Open()) return call.failure();
      return InsertWithFreshIds(call, [&] {
        uint32_t firstId = 0;
        if (!NextId(call, layout.name, count, firstId)) return false;
        if (!BatchBuilds(call.kind(), layout, buffer, size)) return call.Fail(Serial::kCreateSql), false;
        progress = {0, count, firstId};
        return InsertBatch(call, layout, static_cast<const unsigned char*>(buffer), count, firstId);
      }) ? 0 : call.failure();
    });
  });
}

uint32_t sgModifyRecordByIndex(CallerToken token, const DataTableInfo* table, uint32_t index,
                               const DataRecord* record, uint32_t size) {
  return RunExport(Export::kSgModifyRecordByIndex, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !record || index == 0 || size != table->recordSize ||
        !WritableRecords(DescribeTable(*table), record, size))
      return call.InvalidParameter();
    const uint32_t id = sgGetIdByIndex(token, table, index);
    if (id == 0) return call.failure();
    if (!call.Open()) return call.failure();
    const Statement update = UpdateStatement(call.kind(), DescribeTable(*table), record, id);
    if (!update.complete) return call.Fail(Serial::kCreateSql, update);
    return call.Execute(update) ? 0 : call.failure();
  });
}

uint32_t sgOperateRecord(CallerToken token, const DataTableInfo* table, const char* sql) {
  return RunExport(Export::kSgOperateRecord, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !sql) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    return call.ExecuteCallerText(sql) ? 0 : call.failure();
  });
}

uint32_t sgDeleteRecord(CallerToken token, const DataTableInfo* table, const char* sql) {
  return RunExport(Export::kSgDeleteRecord, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (sql && *sql) call.db().DoNotPool();
    const Statement statement =
        sql && *sql ? Statement{sql}
                    : DeleteAllStatement(call.kind(), std::string(TableName(table)));
    return call.Execute(statement) ? 0 : call.failure();
  });
}

uint32_t sgDeleteRecordByIndex(CallerToken token, const DataTableInfo* table, uint32_t index) {
  return RunExport(Export::kSgDeleteRecordByIndex, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || index == 0) return call.InvalidParameter();
    const uint32_t id = sgGetIdByIndex(token, table, index);
    if (id == 0) return call.failure();
    if (!call.Open()) return call.failure();
    const std::string name(TableName(table));
    return call.Execute(DeleteByIdStatement(call.kind(), name, id)) ? 0 : call.failure();
  });
}

uint32_t sgGetRecord(CallerToken token, const DataTableInfo* table, void** records,
                     uint32_t* size, const char* sql) {
  return RunExport(Export::kSgGetRecord, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || !size) return call.InvalidParameter();
    const Statement statement =
        sql && *sql ? Statement{sql}
                    : SelectAllStatement(call.kind(), std::string(TableName(table)),
                                         kWholeTableStatementSize);
    return ReadBlock(call, *table, statement, sql && *sql, records, size);
  });
}

uint32_t sgGetAllRecordOfInterval(CallerToken token, const DataTableInfo* table,
                                  uint32_t startTime, uint32_t endTime, void** records,
                                  uint32_t* size) {
  return RunExport(Export::kSgGetAllRecordOfInterval, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !records || !size || startTime >= endTime)
      return call.InvalidParameter();
    // Read as sgGetRecord reads, with its codes.
    return RunExport(Export::kSgGetRecord, [&](ExportCall& read) -> uint32_t {
      const Statement statement =
          IntervalStatement(read.kind(), std::string(TableName(table)), startTime, endTime);
      return ReadBlock(read, *table, statement, false, records, size);
    });
  });
}

uint32_t sgGetRecordByTime(CallerToken token, const DataTableInfo* table, uint32_t startTime,
                           DataRecord* record, uint32_t size) {
  return RunExport(Export::kSgGetRecordByTime, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !record || size != table->recordSize) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    const TableLayout layout = DescribeTable(*table);
    if (!QueryRecords(call, layout, IntervalStatement(call.kind(), layout.name, startTime, startTime + 59)))
      return call.failure();
    DbConnection& db = call.db();
    if (!MatchesTable(db, layout)) return call.Fail(Serial::kInvalidTable);
    if (db.CountRows() == 0) return call.Fail(Serial::kNoRecord);
    db.MoveFirst();
    if (auto failure = ReadRecord(db, layout.columns, record)) return FailRead(call, *failure);
    return 0;
  });
}

uint32_t sgGetIdByIndex(CallerToken token, const DataTableInfo* table, uint32_t index) {
  return RunExport(Export::kSgGetIdByIndex, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || index == 0) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    const std::string name(TableName(table));
    if (!call.Query(PositionStatement(call.kind(), call.db().OnSqlite(), name,
                                      IdsStatement(call.kind(), name), index)))
      return call.failure();
    DbConnection& db = call.db();
    if (!db.MoveToFirstRow()) return call.Fail(Serial::kIndexPastEnd);
    uint32_t id = 0;
    if (!db.GetInteger(1, &id, sizeof id)) return call.FailField(1);
    return id;
  });
}

uint32_t sgGetRecordByIndex(CallerToken token, const DataTableInfo* table, uint32_t index,
                            DataRecord* record, uint32_t size) {
  return RunExport(Export::kSgGetRecordByIndex, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !record || index == 0 || size != table->recordSize)
      return call.InvalidParameter();
    const TableLayout layout = DescribeTable(*table);
    // Without a layout check, a recordSize too small for the values would be written past.
    if (!layout.HoldsValues()) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!QueryRecords(call, layout, PositionStatement(call.kind(), call.db().OnSqlite(), layout.name,
                                                      SelectAllStatement(call.kind(), layout.name), index)))
      return call.failure();
    DbConnection& db = call.db();
    if (!db.MoveToFirstRow()) return call.Fail(Serial::kIndexPastEnd);
    if (auto failure = ReadRecord(db, layout.columns, record)) return FailRead(call, *failure);
    return 0;
  });
}

uint32_t sgGetRecordCount(CallerToken token, const DataTableInfo* table) {
  return RunExport(Export::kSgGetRecordCount, [&](ExportCall& call) -> uint32_t {
    if (!token || !table) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    if (!call.Query(CountStatement(call.kind(), std::string(TableName(table)))))
      return call.failure();
    uint32_t count = 0;
    if (!ReadSingleInteger(call.db(), count)) return call.FailField(1);
    return count;
  });
}

}  // extern "C"
