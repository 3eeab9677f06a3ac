// Data records of 8 float columns, each library call beside bare ODBC making
// the same statements, fetches and column reads, and on SQLite beside the
// SQLite C API doing the same work (the limit of the embedded store):
//   sgSetRecord, one record a call;
//   sgBatchSetRecord of 100, 1,000 and 10,000 records;
//   sgGetRecord of 100,000 rows;
//   sgGetRecordByIndex at positions 1, 1,000 and 100,000 of those rows.
#include <sqlite3.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"

namespace {

constexpr uint32_t kReadRows = 100000;

using namespace bench;

// Kind 3: the bracket dialect of kind 1, with multi-row batches.
constexpr Target kSqliteBatches{"SCADASTORE_TEST_SQLITE", 3, '[', ']'};

// A DataTableInfo of 8 float columns v1..v8.
class Table {
 public:
  explicit Table(const std::string& name) : bytes_(DataTableBytes(name)) {}
  DataTableInfo* info() { return reinterpret_cast<DataTableInfo*>(bytes_.data()); }
  std::string name() { return info()->name; }

 private:
  std::vector<unsigned char> bytes_;
};

std::string TableName(const char* role) { return bench::TableName("rcd", role); }

// Points the library at the target and makes sure the table exists.
bool Prepare(benchmark::State& state, const Target& target, Table& table) {
  if (!UseOrSkip(state, target)) return false;
  if (ToCreate(target, table.name())) sgEnsureTableExist(Token(), table.info(), nullptr, 0);
  return true;
}

void Empty(Table& table) { sgDeleteRecord(Token(), table.info(), nullptr); }

// Records with realistic 17-digit values.
std::vector<unsigned char> Records(uint32_t count) {
  std::vector<unsigned char> bytes(size_t{count} * kDataRecordSize);
  for (uint32_t i = 0; i < count; ++i) {
    unsigned char* record = bytes.data() + size_t{i} * kDataRecordSize;
    const uint32_t head[4] = {0, 1700000000 + i, i % 1000, 0};
    std::memcpy(record, head, sizeof head);
    for (int c = 0; c < kValueColumns; ++c) {
      const double value = 20.0 + c + (i % 1000) / 3.0;
      std::memcpy(record + 16 + 8 * c, &value, sizeof value);
    }
  }
  return bytes;
}

double ValueAt(const unsigned char* record, int column) {
  double value;
  std::memcpy(&value, record + 16 + 8 * column, sizeof value);
  return value;
}

// The head and the 8 doubles of the current row.
void ReadRecord(BareConnection& db, unsigned char* record) {
  for (int i = 0; i < 4; ++i) db.ReadInteger(static_cast<SQLUSMALLINT>(i + 1), record + 4 * i);
  for (int c = 0; c < kValueColumns; ++c)
    db.ReadDouble(static_cast<SQLUSMALLINT>(5 + c), record + 16 + 8 * c);
}

// The statements the library writes, built here with snprintf.
std::string InsertHead(const Target& target, Table& table, const char* values) {
  std::string head = "insert into " + Quote(target, table.name()) + " (";
  for (const char* name : {"id", "time", "ms", "modify"}) head += Quote(target, name) + ",";
  for (int c = 1; c <= kValueColumns; ++c)
    head += Quote(target, "v" + std::to_string(c)) + (c < kValueColumns ? "," : "");
  return head + ") " + values;
}

void AppendRow(std::string& sql, uint32_t id, const unsigned char* record) {
  char row[512];
  uint32_t time, ms;
  std::memcpy(&time, record + 4, 4);
  std::memcpy(&ms, record + 8, 4);
  int length = std::snprintf(row, sizeof row, "(%u,%u,%u,0", id, time, ms);
  for (int c = 0; c < kValueColumns; ++c)
    length += std::snprintf(row + length, sizeof row - length, ",%.17g", ValueAt(record, c));
  sql.append(row, length);
  sql += ')';
}

// Largest id + 1, read the way the writers read it.
uint32_t NextId(BareConnection& db, const Target& target, Table& table) {
  uint32_t id = 0;
  if (db.OpenCursor(MaxIdSelect(target, table.name())) && db.Fetch(SQL_FETCH_FIRST))
    db.ReadInteger(1, &id);
  return id + 1;
}

// ---- sgSetRecord ---------------------------------------------------------------

void LibrarySetRecord(benchmark::State& state, const Target& target) {
  Table table(TableName("set_lib"));
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<unsigned char> record = Records(1);
  for (auto _ : state) {
    if (sgSetRecord(Token(), table.info(), reinterpret_cast<const DataRecord*>(record.data()),
                    kDataRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void BareOdbcSetRecord(benchmark::State& state, const Target& target) {
  Table table(TableName("set_odbc"));
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<unsigned char> record = Records(1);
  const std::string head = InsertHead(target, table, "values");
  for (auto _ : state) {
    BareConnection db(target);
    std::string sql = head;
    AppendRow(sql, NextId(db, target, table), record.data());
    if (!db.connected() || !db.Execute(sql)) {
      state.SkipWithError("bare insert failed");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

// ---- sgBatchSetRecord ------------------------------------------------------------

void LibraryBatch(benchmark::State& state, const Target& target) {
  Table table(TableName("batch_lib"));
  if (!Prepare(state, target, table)) return;
  const auto count = static_cast<uint32_t>(state.range(0));
  const std::vector<unsigned char> records = Records(count);
  for (auto _ : state) {
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
    if (sgBatchSetRecord(Token(), table.info(), records.data(), count * kDataRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BareOdbcBatch(benchmark::State& state, const Target& target) {
  Table table(TableName("batch_odbc"));
  if (!Prepare(state, target, table)) return;
  const auto count = static_cast<uint32_t>(state.range(0));
  const std::vector<unsigned char> records = Records(count);
  const std::string head = InsertHead(target, table, "values ");
  for (auto _ : state) {
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
    BareConnection db(target);
    const uint32_t firstId = NextId(db, target, table);
    std::string sql = head;
    sql.reserve(16000);
    for (uint32_t i = 0; i < count; ++i) {
      if (i) sql += ',';
      AppendRow(sql, firstId + i, records.data() + size_t{i} * kDataRecordSize);
    }
    if (!db.connected() || !db.Execute(sql)) {
      state.SkipWithError("bare batch failed");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

// The same records through the SQLite C API: one prepared insert with bound
// values, in one transaction, on a connection of its own per batch.
void SqliteApiBatch(benchmark::State& state, const Target& target) {
  Table table(TableName("batch_c"));
  if (!Prepare(state, target, table)) return;
  const auto count = static_cast<uint32_t>(state.range(0));
  const std::vector<unsigned char> records = Records(count);
  std::string insert = "insert into " + Quote(target, table.name()) + " values (?,?,?,0";
  for (int c = 0; c < kValueColumns; ++c) insert += ",?";
  insert += ")";
  for (auto _ : state) {
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
    const bool ok = SqliteApiInsert(
        target, table.name(), insert, count, [&](sqlite3_stmt* statement, uint32_t i, int64_t id) {
          const unsigned char* record = records.data() + size_t{i} * kDataRecordSize;
          uint32_t time, ms;
          std::memcpy(&time, record + 4, 4);
          std::memcpy(&ms, record + 8, 4);
          sqlite3_bind_int64(statement, 1, id);
          sqlite3_bind_int64(statement, 2, time);
          sqlite3_bind_int64(statement, 3, ms);
          for (int c = 0; c < kValueColumns; ++c)
            sqlite3_bind_double(statement, 4 + c, ValueAt(record, c));
        });
    if (!ok) {
      state.SkipWithError("SQLite C API batch failed");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

// ---- Reading -----------------------------------------------------------------------

// One table of kReadRows rows per target, filled once with batches.
bool PrepareReadTable(benchmark::State& state, const Target& target, Table& table) {
  if (!Prepare(state, target, table)) return false;
  if (sgGetRecordCount(Token(), table.info()) == kReadRows) return true;
  Empty(table);
  constexpr uint32_t kBatch = 10000;
  const std::vector<unsigned char> records = Records(kBatch);
  for (uint32_t filled = 0; filled < kReadRows; filled += kBatch) {
    if (sgBatchSetRecord(Token(), table.info(), records.data(), kBatch * kDataRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return false;
    }
  }
  return true;
}

void LibraryGetRecord(benchmark::State& state, const Target& target) {
  Table table(TableName("read"));
  if (!PrepareReadTable(state, target, table)) return;
  TimeBlockReads<void>(state, kReadRows, kDataRecordSize, [&](void** block, uint32_t* size) {
    return sgGetRecord(Token(), table.info(), block, size, nullptr);
  });
}

std::string SelectAll(const Target& target, Table& table) {
  return "select * from " + Quote(target, table.name()) + " order by " + Quote(target, "id") +
         " asc";
}

void BareOdbcGetRecord(benchmark::State& state, const Target& target) {
  Table table(TableName("read"));
  if (!PrepareReadTable(state, target, table)) return;
  const std::string select = SelectAll(target, table);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select) ||
        db.CountColumns() != 4 + kValueColumns) {
      state.SkipWithError("bare select failed");
      return;
    }
    const uint32_t rows = db.CountRows();
    auto* block = static_cast<unsigned char*>(std::calloc(rows, kDataRecordSize));
    db.Fetch(SQL_FETCH_FIRST);
    for (uint32_t k = 0; k < rows; ++k) {
      ReadRecord(db, block + size_t{k} * kDataRecordSize);
      if (k + 1 < rows) db.Fetch(SQL_FETCH_NEXT);
    }
    std::free(block);
    if (rows != kReadRows) {
      state.SkipWithError("bare select missed rows");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * kReadRows);
}

void SqliteApiGetRecord(benchmark::State& state, const Target& target) {
  Table table(TableName("read"));
  if (!PrepareReadTable(state, target, table)) return;
  const std::string select = SelectAll(target, table);
  const std::string file = SqliteFile(target);
  for (auto _ : state) {
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::vector<unsigned char> block;
    block.reserve(size_t{kReadRows} * kDataRecordSize);
    bool ok = sqlite3_open(file.c_str(), &db) == SQLITE_OK &&
              sqlite3_prepare_v2(db, select.c_str(), -1, &statement, nullptr) == SQLITE_OK;
    while (ok && sqlite3_step(statement) == SQLITE_ROW) {
      unsigned char record[kDataRecordSize];
      for (int i = 0; i < 4; ++i) {
        const auto value = static_cast<uint32_t>(sqlite3_column_int64(statement, i));
        std::memcpy(record + 4 * i, &value, 4);
      }
      for (int c = 0; c < kValueColumns; ++c) {
        const double value = sqlite3_column_double(statement, 4 + c);
        std::memcpy(record + 16 + 8 * c, &value, 8);
      }
      block.insert(block.end(), record, record + kDataRecordSize);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    if (block.size() != size_t{kReadRows} * kDataRecordSize) {
      state.SkipWithError("SQLite C API select missed rows");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * kReadRows);
}

void LibraryGetRecordByIndex(benchmark::State& state, const Target& target) {
  Table table(TableName("read"));
  if (!PrepareReadTable(state, target, table)) return;
  const auto index = static_cast<uint32_t>(state.range(0));
  std::vector<unsigned char> record(kDataRecordSize);
  for (auto _ : state) {
    if (sgGetRecordByIndex(Token(), table.info(), index,
                           reinterpret_cast<DataRecord*>(record.data()), kDataRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
  state.SetItemsProcessed(state.iterations());
}

void BareOdbcGetRecordByIndex(benchmark::State& state, const Target& target) {
  Table table(TableName("read"));
  if (!PrepareReadTable(state, target, table)) return;
  const auto index = static_cast<uint32_t>(state.range(0));
  const std::string select =
      SelectAll(target, table) + " limit 1 offset " + std::to_string(index - 1);
  std::vector<unsigned char> record(kDataRecordSize);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select) || !db.Fetch(SQL_FETCH_FIRST)) {
      state.SkipWithError("bare select failed");
      return;
    }
    ReadRecord(db, record.data());
  }
  state.SetItemsProcessed(state.iterations());
}

WALL_CLOCK_BENCH(LibrarySetRecord, Sqlite, kSqliteBatches)->MinTime(2);
WALL_CLOCK_BENCH(BareOdbcSetRecord, Sqlite, kSqliteBatches)->MinTime(2);
WALL_CLOCK_BENCH(LibrarySetRecord, Postgres, kPostgres)->MinTime(2);
WALL_CLOCK_BENCH(BareOdbcSetRecord, Postgres, kPostgres)->MinTime(2);
WALL_CLOCK_BENCH(LibraryBatch, Sqlite, kSqliteBatches)->Arg(100)->Arg(1000)->Arg(10000);
WALL_CLOCK_BENCH(BareOdbcBatch, Sqlite, kSqliteBatches)->Arg(100)->Arg(1000)->Arg(10000);
WALL_CLOCK_BENCH(SqliteApiBatch, Sqlite, kSqliteBatches)->Arg(100)->Arg(1000)->Arg(10000);
WALL_CLOCK_BENCH(LibraryBatch, Postgres, kPostgres)->Arg(100)->Arg(1000)->Arg(10000);
WALL_CLOCK_BENCH(BareOdbcBatch, Postgres, kPostgres)->Arg(100)->Arg(1000)->Arg(10000);
WALL_CLOCK_BENCH(LibraryGetRecord, Sqlite, kSqliteBatches)->Iterations(5);
WALL_CLOCK_BENCH(BareOdbcGetRecord, Sqlite, kSqliteBatches)->Iterations(5);
WALL_CLOCK_BENCH(SqliteApiGetRecord, Sqlite, kSqliteBatches)->Iterations(5);
WALL_CLOCK_BENCH(LibraryGetRecord, Postgres, kPostgres)->Iterations(3);
WALL_CLOCK_BENCH(BareOdbcGetRecord, Postgres, kPostgres)->Iterations(3);
WALL_CLOCK_BENCH(LibraryGetRecordByIndex, Sqlite, kSqliteBatches)
    ->Arg(1)->Arg(1000)->Arg(100000)->Iterations(5);
WALL_CLOCK_BENCH(BareOdbcGetRecordByIndex, Sqlite, kSqliteBatches)
    ->Arg(1)->Arg(1000)->Arg(100000)->Iterations(5);
WALL_CLOCK_BENCH(LibraryGetRecordByIndex, Postgres, kPostgres)
    ->Arg(1)->Arg(1000)->Arg(100000)->Iterations(3);
WALL_CLOCK_BENCH(BareOdbcGetRecordByIndex, Postgres, kPostgres)
    ->Arg(1)->Arg(1000)->Arg(100000)->Iterations(3);

}  // namespace

int main(int argc, char** argv) { return bench::RunThenDropTables(argc, argv); }
