// Data records of 8 float columns, each library call beside bare ODBC making
// the same statements, fetches and column reads, and on SQLite beside the
// SQLite C API doing the same work (the limit of the embedded store):
//   sgSetRecord, one record a call;
//   sgBatchSetRecord of 100, 1,000 and 10,000 records;
//   sgGetRecord of 100,000 rows;
//   sgGetRecordByIndex at positions 1, 1,000 and 100,000 of those rows.
#include <benchmark/benchmark.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "scadastore.h"

namespace {

constexpr int kValueColumns = 8;
constexpr uint32_t kRecordSize = 16 + 8 * kValueColumns;
constexpr uint32_t kReadRows = 100000;

CallerToken Token() { return reinterpret_cast<CallerToken>(0x1); }

struct Target {
  const char* envVar;  // "DSN;user;password"
  int kind;            // 3 on SQLite: the bracket dialect with batches
  char open, close;    // identifier quotes of the kind's dialect
};

const Target kSqlite{"SCADASTORE_TEST_SQLITE", 3, '[', ']'};
const Target kPostgres{"SCADASTORE_TEST_POSTGRES", 5, '"', '"'};

std::string Quote(const Target& target, const std::string& name) {
  return target.open + name + target.close;
}

std::string Setting(const Target& target, int field) {
  std::string config = std::getenv(target.envVar);
  size_t begin = 0;
  for (int i = 0; i < field; ++i) begin = config.find(';', begin) + 1;
  return config.substr(begin, config.find(';', begin) - begin);
}

// The Database= entry of the DSN's section in $ODBCINI: the SQLite file.
std::string SqliteFile(const Target& target) {
  const char* ini = std::getenv("ODBCINI");
  std::ifstream in(ini ? ini : "");
  std::string line, section = "[" + Setting(target, 0) + "]";
  bool inSection = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line[0] == '[') inSection = line == section;
    if (inSection && line.rfind("Database=", 0) == 0) return line.substr(9);
  }
  return {};
}

// A DataTableInfo of 8 float columns v1..v8.
class Table {
 public:
  explicit Table(const std::string& name)
      : bytes_(sizeof(DataTableInfo) + kValueColumns * sizeof(ColumnInfo)) {
    DataTableInfo* table = info();
    std::snprintf(table->name, sizeof table->name, "%s", name.c_str());
    table->recordSize = kRecordSize;
    table->columnCount = kValueColumns;
    for (int c = 0; c < kValueColumns; ++c) {
      table->columns[c].type = SCADASTORE_VALUE_FLOAT;
      std::snprintf(table->columns[c].name, sizeof table->columns[c].name, "v%d", c + 1);
    }
  }
  DataTableInfo* info() { return reinterpret_cast<DataTableInfo*>(bytes_.data()); }
  std::string name() { return info()->name; }

 private:
  std::vector<unsigned char> bytes_;
};

std::string TableName(const char* role) {
  return std::string("bench_rcd_") + role + "_" + std::to_string(getpid());
}

struct CreatedTable {
  const Target* target;
  std::string name;
};
std::vector<CreatedTable> created_tables;

bool Use(const Target& target) {
  const char* config = std::getenv(target.envVar);
  return config != nullptr &&
         dbInitialize((std::string(config) + ";" + std::to_string(target.kind)).c_str()) == 0;
}

// Points the library at the target and makes sure the table exists.
bool Prepare(benchmark::State& state, const Target& target, Table& table) {
  if (!Use(target)) {
    state.SkipWithError((std::string(target.envVar) + " is not set or unreachable").c_str());
    return false;
  }
  if (!dbIsTableExist(Token(), table.info()->name)) {
    created_tables.push_back({&target, table.name()});
    sgEnsureTableExist(Token(), table.info(), nullptr, 0);
  }
  return true;
}

void Empty(Table& table) { sgDeleteRecord(Token(), table.info(), nullptr); }

// Records with realistic 17-digit values.
std::vector<unsigned char> Records(uint32_t count) {
  std::vector<unsigned char> bytes(size_t{count} * kRecordSize);
  for (uint32_t i = 0; i < count; ++i) {
    unsigned char* record = bytes.data() + size_t{i} * kRecordSize;
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

// A bare ODBC connection opened the way the library opens one.
class BareConnection {
 public:
  explicit BareConnection(const Target& target) {
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env_);
    SQLSetEnvAttr(env_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env_, &dbc_);
    SQLSetConnectAttr(dbc_, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(7), 0);
    connected_ = SQL_SUCCEEDED(SQLConnect(dbc_, (SQLCHAR*)Setting(target, 0).c_str(), SQL_NTS,
                                          (SQLCHAR*)Setting(target, 1).c_str(), SQL_NTS,
                                          (SQLCHAR*)Setting(target, 2).c_str(), SQL_NTS));
  }
  ~BareConnection() {
    if (cursor_) SQLFreeHandle(SQL_HANDLE_STMT, cursor_);
    if (connected_) SQLDisconnect(dbc_);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc_);
    SQLFreeHandle(SQL_HANDLE_ENV, env_);
  }
  BareConnection(const BareConnection&) = delete;
  BareConnection& operator=(const BareConnection&) = delete;

  bool connected() const { return connected_; }

  bool Execute(const char* sql) {
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &stmt);
    bool ok = SQL_SUCCEEDED(SQLExecDirect(stmt, (SQLCHAR*)sql, SQL_NTS));
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    return ok;
  }
  bool OpenCursor(const char* sql) {
    if (cursor_) SQLFreeHandle(SQL_HANDLE_STMT, cursor_);
    SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &cursor_);
    SQLSetStmtAttr(cursor_, SQL_ATTR_CURSOR_TYPE, reinterpret_cast<SQLPOINTER>(SQL_CURSOR_STATIC),
                   SQL_IS_INTEGER);
    SQLSetStmtAttr(cursor_, SQL_ATTR_CURSOR_SCROLLABLE,
                   reinterpret_cast<SQLPOINTER>(SQL_SCROLLABLE), SQL_IS_INTEGER);
    return SQL_SUCCEEDED(SQLExecDirect(cursor_, (SQLCHAR*)sql, SQL_NTS));
  }
  bool Fetch(SQLSMALLINT orientation) {
    return SQL_SUCCEEDED(SQLFetchScroll(cursor_, orientation, 0));
  }
  int CountColumns() {
    SQLSMALLINT columns = 0;
    SQLNumResultCols(cursor_, &columns);
    return columns;
  }
  // Counts the rows by walking them, as a static cursor is counted.
  uint32_t CountRows() {
    uint32_t rows = 0;
    for (bool more = Fetch(SQL_FETCH_FIRST); more; more = Fetch(SQL_FETCH_NEXT)) ++rows;
    return rows;
  }
  void Read(SQLUSMALLINT column, SQLSMALLINT type, void* target, size_t size) {
    unsigned char value[8] = {};
    SQLLEN indicator = 0;
    SQLGetData(cursor_, column, type, value, static_cast<SQLLEN>(size), &indicator);
    if (indicator != SQL_NULL_DATA) std::memcpy(target, value, size);
  }
  // The head and the 8 doubles of the current row.
  void ReadRecord(unsigned char* record) {
    for (int i = 0; i < 4; ++i) Read(static_cast<SQLUSMALLINT>(i + 1), SQL_C_ULONG, record + 4 * i, 4);
    for (int c = 0; c < kValueColumns; ++c)
      Read(static_cast<SQLUSMALLINT>(5 + c), SQL_C_DOUBLE, record + 16 + 8 * c, 8);
  }

 private:
  SQLHENV env_ = SQL_NULL_HENV;
  SQLHDBC dbc_ = SQL_NULL_HDBC;
  SQLHSTMT cursor_ = SQL_NULL_HSTMT;
  bool connected_ = false;
};

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
  const std::string maxId = "select max(" + Quote(target, "id") + ") from " + Quote(target, table.name());
  uint32_t id = 0;
  if (db.OpenCursor(maxId.c_str()) && db.Fetch(SQL_FETCH_FIRST)) db.Read(1, SQL_C_ULONG, &id, 4);
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
                    kRecordSize) != 0) {
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
    if (!db.connected() || !db.Execute(sql.c_str())) {
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
    if (sgBatchSetRecord(Token(), table.info(), records.data(), count * kRecordSize) != 0) {
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
      AppendRow(sql, firstId + i, records.data() + size_t{i} * kRecordSize);
    }
    if (!db.connected() || !db.Execute(sql.c_str())) {
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
  const std::string maxId = "select max(id) from " + Quote(target, table.name());
  const std::string file = SqliteFile(target);
  for (auto _ : state) {
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    bool ok = sqlite3_open(file.c_str(), &db) == SQLITE_OK;
    sqlite3_busy_timeout(db, 5000);
    // The data source's SyncPragma=NORMAL, so both commit alike.
    ok = ok && sqlite3_exec(db, "pragma synchronous=normal", nullptr, nullptr, nullptr) == SQLITE_OK;
    ok = ok && sqlite3_prepare_v2(db, maxId.c_str(), -1, &statement, nullptr) == SQLITE_OK;
    ok = ok && sqlite3_step(statement) == SQLITE_ROW;
    const int64_t firstId = ok ? sqlite3_column_int64(statement, 0) + 1 : 0;
    sqlite3_finalize(statement);
    ok = ok && sqlite3_exec(db, "begin", nullptr, nullptr, nullptr) == SQLITE_OK;
    ok = ok && sqlite3_prepare_v2(db, insert.c_str(), -1, &statement, nullptr) == SQLITE_OK;
    for (uint32_t i = 0; ok && i < count; ++i) {
      const unsigned char* record = records.data() + size_t{i} * kRecordSize;
      uint32_t time, ms;
      std::memcpy(&time, record + 4, 4);
      std::memcpy(&ms, record + 8, 4);
      sqlite3_bind_int64(statement, 1, firstId + i);
      sqlite3_bind_int64(statement, 2, time);
      sqlite3_bind_int64(statement, 3, ms);
      for (int c = 0; c < kValueColumns; ++c)
        sqlite3_bind_double(statement, 4 + c, ValueAt(record, c));
      ok = sqlite3_step(statement) == SQLITE_DONE;
      sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    ok = ok && sqlite3_exec(db, "commit", nullptr, nullptr, nullptr) == SQLITE_OK;
    sqlite3_close(db);
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
    if (sgBatchSetRecord(Token(), table.info(), records.data(), kBatch * kRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return false;
    }
  }
  return true;
}

void LibraryGetRecord(benchmark::State& state, const Target& target) {
  Table table(TableName("read"));
  if (!PrepareReadTable(state, target, table)) return;
  for (auto _ : state) {
    void* block = nullptr;
    uint32_t size = 0;
    if (sgGetRecord(Token(), table.info(), &block, &size, nullptr) != 0 ||
        size != kReadRows * kRecordSize) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations() * kReadRows);
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
    if (!db.connected() || !db.OpenCursor(select.c_str()) ||
        db.CountColumns() != 4 + kValueColumns) {
      state.SkipWithError("bare select failed");
      return;
    }
    const uint32_t rows = db.CountRows();
    auto* block = static_cast<unsigned char*>(std::calloc(rows, kRecordSize));
    db.Fetch(SQL_FETCH_FIRST);
    for (uint32_t k = 0; k < rows; ++k) {
      db.ReadRecord(block + size_t{k} * kRecordSize);
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
    block.reserve(size_t{kReadRows} * kRecordSize);
    bool ok = sqlite3_open(file.c_str(), &db) == SQLITE_OK &&
              sqlite3_prepare_v2(db, select.c_str(), -1, &statement, nullptr) == SQLITE_OK;
    while (ok && sqlite3_step(statement) == SQLITE_ROW) {
      unsigned char record[kRecordSize];
      for (int i = 0; i < 4; ++i) {
        const auto value = static_cast<uint32_t>(sqlite3_column_int64(statement, i));
        std::memcpy(record + 4 * i, &value, 4);
      }
      for (int c = 0; c < kValueColumns; ++c) {
        const double value = sqlite3_column_double(statement, 4 + c);
        std::memcpy(record + 16 + 8 * c, &value, 8);
      }
      block.insert(block.end(), record, record + kRecordSize);
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    if (block.size() != size_t{kReadRows} * kRecordSize) {
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
  std::vector<unsigned char> record(kRecordSize);
  for (auto _ : state) {
    if (sgGetRecordByIndex(Token(), table.info(), index,
                           reinterpret_cast<DataRecord*>(record.data()), kRecordSize) != 0) {
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
  const std::string select = SelectAll(target, table);
  std::vector<unsigned char> record(kRecordSize);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select.c_str()) || db.CountRows() < index) {
      state.SkipWithError("bare select failed");
      return;
    }
    db.Fetch(SQL_FETCH_FIRST);
    for (uint32_t step = 1; step < index; ++step) db.Fetch(SQL_FETCH_NEXT);
    db.ReadRecord(record.data());
  }
  state.SetItemsProcessed(state.iterations());
}

#define RECORD_BENCH(function, target) \
  BENCHMARK_CAPTURE(function, target, k##target)->Unit(benchmark::kMillisecond)->UseRealTime()

RECORD_BENCH(LibrarySetRecord, Sqlite)->MinTime(2);
RECORD_BENCH(BareOdbcSetRecord, Sqlite)->MinTime(2);
RECORD_BENCH(LibrarySetRecord, Postgres)->MinTime(2);
RECORD_BENCH(BareOdbcSetRecord, Postgres)->MinTime(2);
RECORD_BENCH(LibraryBatch, Sqlite)->Arg(100)->Arg(1000)->Arg(10000);
RECORD_BENCH(BareOdbcBatch, Sqlite)->Arg(100)->Arg(1000)->Arg(10000);
RECORD_BENCH(SqliteApiBatch, Sqlite)->Arg(100)->Arg(1000)->Arg(10000);
RECORD_BENCH(LibraryBatch, Postgres)->Arg(100)->Arg(1000)->Arg(10000);
RECORD_BENCH(BareOdbcBatch, Postgres)->Arg(100)->Arg(1000)->Arg(10000);
RECORD_BENCH(LibraryGetRecord, Sqlite)->Iterations(5);
RECORD_BENCH(BareOdbcGetRecord, Sqlite)->Iterations(5);
RECORD_BENCH(SqliteApiGetRecord, Sqlite)->Iterations(5);
RECORD_BENCH(LibraryGetRecord, Postgres)->Iterations(3);
RECORD_BENCH(BareOdbcGetRecord, Postgres)->Iterations(3);
RECORD_BENCH(LibraryGetRecordByIndex, Sqlite)->Arg(1)->Arg(1000)->Arg(100000)->Iterations(5);
RECORD_BENCH(BareOdbcGetRecordByIndex, Sqlite)->Arg(1)->Arg(1000)->Arg(100000)->Iterations(5);
RECORD_BENCH(LibraryGetRecordByIndex, Postgres)->Arg(1)->Arg(1000)->Arg(100000)->Iterations(3);
RECORD_BENCH(BareOdbcGetRecordByIndex, Postgres)->Arg(1)->Arg(1000)->Arg(100000)->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  for (const CreatedTable& table : created_tables)
    if (Use(*table.target)) dbRemoveTable(Token(), table.name.c_str(), nullptr, 0);
  return 0;
}
