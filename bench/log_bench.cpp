// logSetLog of 1,000 records and logGetLogByTime over 100,000 entries, each
// beside bare ODBC making the same statements, fetches and column reads.
#include <benchmark/benchmark.h>
#include <sql.h>
#include <sqlext.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "scadastore.h"

namespace {

constexpr uint32_t kWriteRecords = 1000;
constexpr uint32_t kReadEntries = 100000;
constexpr uint32_t kRecordSize = sizeof(LogRecord);

CallerToken Token() { return reinterpret_cast<CallerToken>(0x1); }

struct Target {
  const char* envVar;  // "DSN;user;password"
  int kind;
  const char* quote;   // identifier quotes of the kind's dialect, open and close
};

const Target kSqlite{"SCADASTORE_TEST_SQLITE", 1, "[]"};
const Target kPostgres{"SCADASTORE_TEST_POSTGRES", 5, "\"\""};

std::string TableName(const char* role) {
  return std::string("bench_log_") + role + "_" + std::to_string(getpid());
}

struct CreatedTable {
  const Target* target;
  std::string name;
};
std::vector<CreatedTable> created_tables;

// Points the library at the target; false when its server is not configured.
bool Use(const Target& target) {
  const char* config = std::getenv(target.envVar);
  return config != nullptr &&
         dbInitialize((std::string(config) + ";" + std::to_string(target.kind)).c_str()) == 0;
}

// Points the library at the target and makes sure `table` exists.
bool Prepare(benchmark::State& state, const Target& target, const std::string& table) {
  if (!Use(target)) {
    state.SkipWithError((std::string(target.envVar) + " is not set or unreachable").c_str());
    return false;
  }
  if (!dbIsTableExist(Token(), table.c_str())) {
    created_tables.push_back({&target, table});
    logEnsureTableExist(Token(), table.c_str());
  }
  return true;
}

void Empty(const std::string& table) {
  logDeleteLog(Token(), table.c_str(), ("delete from " + table).c_str());
}

std::vector<LogRecord> Records(uint32_t count) {
  std::vector<LogRecord> records(count);
  std::memset(records.data(), 0, count * kRecordSize);
  for (uint32_t i = 0; i < count; ++i) {
    records[i].logtime = 1700000000 + i;
    records[i].millisecond = i % 1000;
    records[i].logtype = 1;
    records[i].ip = 0x7F000001;
    std::snprintf(records[i].source, sizeof records[i].source, "station %u", i % 16);
    std::snprintf(records[i].loginfo, sizeof records[i].loginfo, "valve %u opened by schedule", i);
    std::strcpy(records[i].operator_, "operator");
    std::strcpy(records[i].monitor, "console 1");
  }
  return records;
}

// A bare ODBC connection opened the way the library opens one.
class BareConnection {
 public:
  explicit BareConnection(const Target& target) {
    std::string config = std::getenv(target.envVar);
    size_t user = config.find(';'), password = config.find(';', user + 1);
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env_);
    SQLSetEnvAttr(env_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env_, &dbc_);
    SQLSetConnectAttr(dbc_, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(7), 0);
    connected_ = SQL_SUCCEEDED(SQLConnect(
        dbc_, (SQLCHAR*)config.substr(0, user).c_str(), SQL_NTS,
        (SQLCHAR*)config.substr(user + 1, password - user - 1).c_str(), SQL_NTS,
        (SQLCHAR*)config.substr(password + 1).c_str(), SQL_NTS));
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

  // Opens a static scrollable cursor; its column count is asked once, as the
  // library's readers do before their first read.
  bool OpenCursor(const char* sql) {
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
  void CountColumns() {
    SQLSMALLINT columns = 0;
    SQLNumResultCols(cursor_, &columns);
  }
  void ReadInteger(SQLUSMALLINT column, void* target) {
    SQLUINTEGER value = 0;
    SQLLEN indicator = 0;
    SQLGetData(cursor_, column, SQL_C_ULONG, &value, sizeof value, &indicator);
    if (indicator != SQL_NULL_DATA) std::memcpy(target, &value, sizeof value);
  }
  void ReadText(SQLUSMALLINT column, char* target, SQLLEN capacity) {
    SQLLEN indicator = 0;
    SQLGetData(cursor_, column, SQL_C_CHAR, target, capacity, &indicator);
  }

 private:
  SQLHENV env_ = SQL_NULL_HENV;
  SQLHDBC dbc_ = SQL_NULL_HDBC;
  SQLHSTMT cursor_ = SQL_NULL_HSTMT;
  bool connected_ = false;
};

std::string Quote(const Target& target, const std::string& name) {
  return target.quote[0] + name + target.quote[1];
}

void LibrarySetLog(benchmark::State& state, const Target& target) {
  const std::string table = TableName("write_lib");
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<LogRecord> records = Records(kWriteRecords);
  for (auto _ : state) {
    if (logSetLog(Token(), table.c_str(), records.data(), kWriteRecords * kRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kWriteRecords);
}

void BareOdbcSetLog(benchmark::State& state, const Target& target) {
  const std::string table = TableName("write_odbc");
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<LogRecord> records = Records(kWriteRecords);
  const std::string q = Quote(target, table);
  const std::string maxId = "select max(" + Quote(target, "id") + ") from " + q;
  std::string columns;
  for (const char* name : {"id", "logtime", "millisecond", "logtype", "source", "loginfo",
                           "operator", "monitor", "logverify", "ip", "ackinfo", "batch"})
    columns += (columns.empty() ? "" : ", ") + Quote(target, name);
  const std::string insert = "insert into " + q + " (" + columns +
                             ") values(%u, %u, %u, %u, '%s', '%s', '%s', '%s', '%s', %u, '%s', '%s')";
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(maxId.c_str())) {
      state.SkipWithError("bare connection or max(id) failed");
      return;
    }
    db.Fetch(SQL_FETCH_FIRST);
    db.CountColumns();
    uint32_t id = 0;
    db.ReadInteger(1, &id);
    char sql[1024];
    for (const LogRecord& r : records) {
      std::snprintf(sql, sizeof sql, insert.c_str(), ++id, r.logtime, r.millisecond, r.logtype,
                    r.source, r.loginfo, r.operator_, r.monitor, r.logverify, r.ip, r.ackinfo,
                    r.batch);
      if (!db.Execute(sql)) {
        state.SkipWithError("bare insert failed");
        return;
      }
    }
    state.PauseTiming();
    db.Execute(("delete from " + q).c_str());
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kWriteRecords);
}

// One table of kReadEntries entries per target, filled once with multi-row inserts.
std::string ReadTable(benchmark::State& state, const Target& target) {
  const std::string table = TableName("read");
  if (!Prepare(state, target, table)) return {};
  if (logGetLogCount(Token(), table.c_str()) == kReadEntries) return table;
  Empty(table);
  const std::vector<LogRecord> records = Records(kReadEntries);
  BareConnection db(target);
  const std::string head = "insert into " + table +
                           " (id, logtime, millisecond, logtype, source, loginfo, operator, "
                           "monitor, logverify, ip, ackinfo, batch) values ";
  std::string sql;
  for (uint32_t i = 0; i < kReadEntries; ++i) {
    const LogRecord& r = records[i];
    char row[512];
    std::snprintf(row, sizeof row, "(%u, %u, %u, %u, '%s', '%s', '%s', '%s', '', %u, '', '')",
                  i + 1, r.logtime, r.millisecond, r.logtype, r.source, r.loginfo, r.operator_,
                  r.monitor, r.ip);
    sql += (sql.empty() ? head : ", ") + row;
    if ((i + 1) % 1000 == 0) {
      if (!db.Execute(sql.c_str())) {
        state.SkipWithError("filling the read table failed");
        return {};
      }
      sql.clear();
    }
  }
  return table;
}

void LibraryGetLogByTime(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  for (auto _ : state) {
    LogRecord* block = nullptr;
    uint32_t size = 0;
    if (logGetLogByTime(Token(), table.c_str(), 0, 0xFFFFFFFF, &block, &size) != 0 ||
        size != kReadEntries * kRecordSize) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations() * kReadEntries);
}

void BareOdbcGetLogByTime(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  const std::string logtime = Quote(target, "logtime");
  const std::string select = "select * from " + Quote(target, table) + " where (" + logtime +
                             " >= 0) and (" + logtime + " <= 4294967295) order by " +
                             Quote(target, "id") + " asc";
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select.c_str())) {
      state.SkipWithError("bare select failed");
      return;
    }
    uint32_t rows = 0;
    for (bool more = db.Fetch(SQL_FETCH_FIRST); more; more = db.Fetch(SQL_FETCH_NEXT)) ++rows;
    auto* block = static_cast<LogRecord*>(std::calloc(rows, kRecordSize));
    db.Fetch(SQL_FETCH_FIRST);
    db.CountColumns();
    for (uint32_t k = 0; k < rows; ++k) {
      LogRecord& r = block[k];
      auto* bytes = reinterpret_cast<unsigned char*>(&r);
      db.ReadInteger(1, bytes + offsetof(LogRecord, id));
      db.ReadInteger(2, bytes + offsetof(LogRecord, logtime));
      db.ReadInteger(3, bytes + offsetof(LogRecord, millisecond));
      db.ReadInteger(4, bytes + offsetof(LogRecord, logtype));
      db.ReadText(5, r.source, sizeof r.source);
      db.ReadText(6, r.loginfo, sizeof r.loginfo);
      db.ReadText(7, r.operator_, sizeof r.operator_);
      db.ReadText(8, r.monitor, sizeof r.monitor);
      db.ReadText(9, r.logverify, sizeof r.logverify);
      db.ReadInteger(10, bytes + offsetof(LogRecord, ip));
      db.ReadText(11, r.ackinfo, sizeof r.ackinfo);
      db.ReadText(12, r.batch, sizeof r.batch);
      db.ReadText(13, r.rsvd, sizeof r.rsvd);
      if (k + 1 < rows) db.Fetch(SQL_FETCH_NEXT);
    }
    if (rows != kReadEntries) {
      state.SkipWithError("bare select missed entries");
      std::free(block);
      return;
    }
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations() * kReadEntries);
}

BENCHMARK_CAPTURE(LibrarySetLog, sqlite, kSqlite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcSetLog, sqlite, kSqlite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(LibrarySetLog, postgres, kPostgres)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcSetLog, postgres, kPostgres)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(LibraryGetLogByTime, sqlite, kSqlite)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK_CAPTURE(BareOdbcGetLogByTime, sqlite, kSqlite)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK_CAPTURE(LibraryGetLogByTime, postgres, kPostgres)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK_CAPTURE(BareOdbcGetLogByTime, postgres, kPostgres)
    ->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  for (const CreatedTable& table : created_tables)
    if (Use(*table.target)) dbRemoveTable(Token(), table.name.c_str(), nullptr, 0);
  return 0;
}
