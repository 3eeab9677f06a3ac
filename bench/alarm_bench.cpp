// almSetAlarm of 1,000 records and almGetAlarmByQuery of a one-hour range
// over 100,000 alarms, each beside bare ODBC making the same statements,
// fetches and column reads.
#include <benchmark/benchmark.h>
#include <sql.h>
#include <sqlext.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "scadastore.h"

namespace {

constexpr uint32_t kWriteRecords = 1000;
constexpr uint32_t kReadRows = 100000;
constexpr uint32_t kRecordSize = sizeof(AlarmRecord);
constexpr uint32_t kFirstTime = 1700000000;  // one alarm per second from here
constexpr uint32_t kHourStart = kFirstTime + 50000;
constexpr uint32_t kHourRows = 3601;  // both bounds are inclusive

CallerToken Token() { return reinterpret_cast<CallerToken>(0x1); }

struct Target {
  const char* envVar;  // "DSN;user;password"
  int kind;
  char open, close;    // identifier quotes of the kind's dialect
};

const Target kSqlite{"SCADASTORE_TEST_SQLITE", 1, '[', ']'};
const Target kPostgres{"SCADASTORE_TEST_POSTGRES", 5, '"', '"'};

std::string Quote(const Target& target, const std::string& name) {
  return target.open + name + target.close;
}

std::string TableName(const char* role) {
  return std::string("bench_alm_") + role + "_" + std::to_string(getpid());
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

// Points the library at the target and makes sure `table` exists.
bool Prepare(benchmark::State& state, const Target& target, const std::string& table) {
  if (!Use(target)) {
    state.SkipWithError((std::string(target.envVar) + " is not set or unreachable").c_str());
    return false;
  }
  if (!dbIsTableExist(Token(), table.c_str())) {
    created_tables.push_back({&target, table});
    almEnsureTableExist(Token(), table.c_str());
  }
  return true;
}

void Empty(const Target& target, const std::string& table) {
  almDeleteAlarm(Token(), table.c_str(), ("delete from " + Quote(target, table)).c_str());
}

std::vector<AlarmRecord> Records(uint32_t count) {
  std::vector<AlarmRecord> records(count);
  std::memset(records.data(), 0, count * kRecordSize);
  for (uint32_t i = 0; i < count; ++i) {
    AlarmRecord& r = records[i];
    std::snprintf(r.station, sizeof r.station, "station %u", i % 16);
    std::snprintf(r.tag, sizeof r.tag, "tag %u", i % 200);
    r.tagtype = 1;
    r.value = 20.0 + i % 100 * 0.25;
    r.alarmtype = i % 4;
    r.arisetime = kFirstTime + i;
    r.ip = 0x7F000001;
    std::snprintf(r.description, sizeof r.description, "temperature high on tag %u", i % 200);
    r.millisecond = i % 1000;
    std::strcpy(r.batch, "batch");
    r.alarmlevel = i % 5;
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

  // A static scrollable cursor; its column count is asked once, as the
  // library's readers do before their first read.
  bool OpenCursor(const char* sql) {
    SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &cursor_);
    SQLSetStmtAttr(cursor_, SQL_ATTR_CURSOR_TYPE, reinterpret_cast<SQLPOINTER>(SQL_CURSOR_STATIC),
                   SQL_IS_INTEGER);
    SQLSetStmtAttr(cursor_, SQL_ATTR_CURSOR_SCROLLABLE,
                   reinterpret_cast<SQLPOINTER>(SQL_SCROLLABLE), SQL_IS_INTEGER);
    if (!SQL_SUCCEEDED(SQLExecDirect(cursor_, (SQLCHAR*)sql, SQL_NTS))) return false;
    SQLSMALLINT columns = 0;
    SQLNumResultCols(cursor_, &columns);
    return true;
  }
  bool Fetch(SQLSMALLINT orientation) {
    return SQL_SUCCEEDED(SQLFetchScroll(cursor_, orientation, 0));
  }
  void Read(SQLUSMALLINT column, SQLSMALLINT type, void* target, SQLLEN size) {
    unsigned char value[8] = {};
    SQLLEN indicator = 0;
    SQLGetData(cursor_, column, type, value, size, &indicator);
    if (indicator != SQL_NULL_DATA) std::memcpy(target, value, size);
  }
  void ReadInteger(SQLUSMALLINT column, void* target) { Read(column, SQL_C_ULONG, target, 4); }
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

// The insert of one record, values as the library prints them.
std::string InsertValues(const AlarmRecord& r, uint32_t id) {
  char values[1024];
  std::snprintf(values, sizeof values,
                "values(%u, '%s', '%s', %u, %u, %.17g, %u, %u, %u, %u, '%s', %u, '%s', %u)", id,
                r.station, r.tag, r.tagtype, r.alarmtype, static_cast<double>(float(r.value)),
                r.status, r.recovertime, r.arisetime, r.ip, r.description, r.millisecond, r.batch,
                r.alarmlevel);
  return values;
}

std::string InsertHead(const Target& target, const std::string& table) {
  std::string columns;
  for (const char* name : {"id", "station", "tag", "tagtype", "alarmtype", "value", "status",
                           "recovertime", "arisetime", "ip", "description", "millisecond",
                           "batch", "alarmlevel"})
    columns += (columns.empty() ? "" : ", ") + Quote(target, name);
  return "insert into " + Quote(target, table) + " (" + columns + ") ";
}

void LibrarySetAlarm(benchmark::State& state, const Target& target) {
  const std::string table = TableName("write_lib");
  if (!Prepare(state, target, table)) return;
  Empty(target, table);
  const std::vector<AlarmRecord> records = Records(kWriteRecords);
  for (auto _ : state) {
    if (almSetAlarm(Token(), table.c_str(), records.data(), kWriteRecords * kRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    state.PauseTiming();
    Empty(target, table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kWriteRecords);
}

void BareOdbcSetAlarm(benchmark::State& state, const Target& target) {
  const std::string table = TableName("write_odbc");
  if (!Prepare(state, target, table)) return;
  Empty(target, table);
  const std::vector<AlarmRecord> records = Records(kWriteRecords);
  const std::string maxId = "select max(" + Quote(target, "id") + ") from " + Quote(target, table);
  const std::string head = InsertHead(target, table);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(maxId.c_str())) {
      state.SkipWithError("bare connection or max(id) failed");
      return;
    }
    db.Fetch(SQL_FETCH_FIRST);
    uint32_t id = 0;
    db.ReadInteger(1, &id);
    for (const AlarmRecord& r : records) {
      if (!db.Execute((head + InsertValues(r, ++id)).c_str())) {
        state.SkipWithError("bare insert failed");
        return;
      }
    }
    state.PauseTiming();
    Empty(target, table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kWriteRecords);
}

// One table of kReadRows alarms per target, filled once with multi-row inserts.
std::string ReadTable(benchmark::State& state, const Target& target) {
  const std::string table = TableName("read");
  if (!Prepare(state, target, table)) return {};
  if (almGetAlarmCount(Token(), table.c_str()) == kReadRows) return table;
  Empty(target, table);
  const std::vector<AlarmRecord> records = Records(kReadRows);
  const std::string head = InsertHead(target, table) + "values ";
  BareConnection db(target);
  std::string sql;
  for (uint32_t i = 0; i < kReadRows; ++i) {
    sql += (sql.empty() ? head : ", ") + InsertValues(records[i], i + 1).substr(6);
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

void LibraryQueryHour(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  const AlarmQuery query{kHourStart, kHourStart + 3600, 0, 0, 0, 0, 0, 0};
  for (auto _ : state) {
    AlarmRecord* block = nullptr;
    uint32_t size = 0;
    if (almGetAlarmByQuery(Token(), table.c_str(), &query, &block, &size) != 0 ||
        size != kHourRows * kRecordSize) {
      state.SkipWithError(dbGetLastError());
      std::free(block);
      return;
    }
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations() * kHourRows);
}

void BareOdbcQueryHour(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  const std::string arisetime = Quote(target, "arisetime");
  const std::string select = "select * from " + Quote(target, table) + " where (" + arisetime +
                             " >= " + std::to_string(kHourStart) + ") and (" + arisetime +
                             " <= " + std::to_string(kHourStart + 3600) + ") order by " +
                             Quote(target, "id") + " asc";
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select.c_str())) {
      state.SkipWithError("bare select failed");
      return;
    }
    uint32_t rows = 0;
    for (bool more = db.Fetch(SQL_FETCH_FIRST); more; more = db.Fetch(SQL_FETCH_NEXT)) ++rows;
    auto* block = static_cast<AlarmRecord*>(std::calloc(rows, kRecordSize));
    db.Fetch(SQL_FETCH_FIRST);
    double value = 0.0;
    for (uint32_t k = 0; k < rows; ++k) {
      AlarmRecord& r = block[k];
      auto* bytes = reinterpret_cast<unsigned char*>(&r);
      db.ReadInteger(1, bytes + offsetof(AlarmRecord, id));
      db.ReadText(2, r.station, sizeof r.station);
      db.ReadText(3, r.tag, sizeof r.tag);
      db.ReadInteger(4, bytes + offsetof(AlarmRecord, tagtype));
      db.ReadInteger(5, bytes + offsetof(AlarmRecord, alarmtype));
      db.Read(6, SQL_C_DOUBLE, &value, sizeof value);
      std::memcpy(bytes + offsetof(AlarmRecord, value), &value, sizeof value);
      db.ReadInteger(7, bytes + offsetof(AlarmRecord, status));
      r.confirmed = r.status != 0;
      db.ReadInteger(8, bytes + offsetof(AlarmRecord, recovertime));
      db.ReadInteger(9, bytes + offsetof(AlarmRecord, arisetime));
      db.ReadInteger(10, bytes + offsetof(AlarmRecord, ip));
      db.ReadText(11, r.description, sizeof r.description);
      db.ReadInteger(12, bytes + offsetof(AlarmRecord, millisecond));
      db.ReadText(13, r.batch, sizeof r.batch);
      db.ReadInteger(14, bytes + offsetof(AlarmRecord, alarmlevel));
      if (k + 1 < rows) db.Fetch(SQL_FETCH_NEXT);
    }
    std::free(block);
    if (rows != kHourRows) {
      state.SkipWithError("bare select missed alarms");
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * kHourRows);
}

BENCHMARK_CAPTURE(LibrarySetAlarm, sqlite, kSqlite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcSetAlarm, sqlite, kSqlite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(LibrarySetAlarm, postgres, kPostgres)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcSetAlarm, postgres, kPostgres)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(LibraryQueryHour, sqlite, kSqlite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcQueryHour, sqlite, kSqlite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(LibraryQueryHour, postgres, kPostgres)
    ->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcQueryHour, postgres, kPostgres)
    ->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  for (const CreatedTable& table : created_tables)
    if (Use(*table.target)) dbRemoveTable(Token(), table.name.c_str(), nullptr, 0);
  return 0;
}
