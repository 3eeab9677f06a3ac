// What the benchmarks share: the test servers named by the environment, the
// tables a run creates (dropped when it ends), and a bare ODBC connection that
// makes the calls the library makes, the baseline each export is set beside.
#pragma once

#include <benchmark/benchmark.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "scadastore.h"

// A benchmark in milliseconds of wall time: most of the work is the server's,
// which this process's CPU time would not show.
#define WALL_CLOCK_BENCH(function, name, ...) \
  BENCHMARK_CAPTURE(function, name, __VA_ARGS__)->Unit(benchmark::kMillisecond)->UseRealTime()

namespace bench {

inline CallerToken Token() { return reinterpret_cast<CallerToken>(0x1); }

struct Target {
  const char* envVar;  // "DSN;user;password"
  int kind;
  char open, close;    // identifier quotes of the kind's dialect
};

inline constexpr Target kSqlite{"SCADASTORE_TEST_SQLITE", 1, '[', ']'};
// Kind 3: the same SQLite file under the kind whose batches are multi-row inserts.
inline constexpr Target kSqliteBatch{"SCADASTORE_TEST_SQLITE", 3, '[', ']'};
inline constexpr Target kPostgres{"SCADASTORE_TEST_POSTGRES", 5, '"', '"'};
inline constexpr Target kMariadb{"SCADASTORE_TEST_MARIADB", 2, '`', '`'};

inline std::string Quote(const Target& target, const std::string& name) {
  return target.open + name + target.close;
}

// "a, b, c", each name quoted.
inline std::string ColumnList(const Target& target, std::initializer_list<const char*> names) {
  std::string list;
  for (const char* name : names) list += (list.empty() ? "" : ", ") + Quote(target, name);
  return list;
}

inline std::string MaxIdSelect(const Target& target, const std::string& table) {
  return "select max(" + Quote(target, "id") + ") from " + Quote(target, table);
}

// Every column of the rows whose `column` lies in [low, high], by id.
inline std::string RangeSelect(const Target& target, const std::string& table, const char* column,
                               uint32_t low, uint32_t high) {
  const std::string quoted = Quote(target, column);
  return "select * from " + Quote(target, table) + " where (" + quoted +
         " >= " + std::to_string(low) + ") and (" + quoted + " <= " + std::to_string(high) +
         ") order by " + Quote(target, "id") + " asc";
}

// Unique to the process, so that runs side by side keep to their own tables.
inline std::string TableName(const char* area, const char* role) {
  return std::string("bench_") + area + "_" + role + "_" + std::to_string(getpid());
}

struct Login {
  std::string dsn, user, password;
};

inline Login LoginOf(const Target& target) {
  const std::string config = std::getenv(target.envVar);
  const size_t user = config.find(';'), password = config.find(';', user + 1);
  return {config.substr(0, user), config.substr(user + 1, password - user - 1),
          config.substr(password + 1)};
}

// The Database= entry of the DSN's section in $ODBCINI: the SQLite file.
inline std::string SqliteFile(const Target& target) {
  const char* ini = std::getenv("ODBCINI");
  std::ifstream in(ini ? ini : "");
  std::string line, section = "[" + LoginOf(target).dsn + "]";
  bool inSection = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line[0] == '[') inSection = line == section;
    if (inSection && line.rfind("Database=", 0) == 0) return line.substr(9);
  }
  return {};
}

// The library's configuration text, "DSN;user;password;kind" and `options`,
// or "" when the target's variable is not set.
inline std::string ConfigText(const Target& target, const std::string& options = "") {
  const char* config = std::getenv(target.envVar);
  return config ? std::string(config) + ";" + std::to_string(target.kind) + options
                : std::string();
}

// The SQLite C API's fastest write, the baseline of batch writes: the largest
// id read, then `insert` prepared once and run for each of `rows` rows in one
// transaction, bindRow(statement, i, id) binding row i under `id`. The data
// source's SyncPragma=NORMAL is set alike, so both commit the same way.
template <class BindRow>
bool SqliteApiInsert(const Target& target, const std::string& table, const std::string& insert,
                     uint32_t rows, BindRow&& bindRow) {
  const std::string maxId = "select max(id) from " + Quote(target, table);
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  bool ok = sqlite3_open(SqliteFile(target).c_str(), &db) == SQLITE_OK;
  sqlite3_busy_timeout(db, 5000);
  ok = ok && sqlite3_exec(db, "pragma synchronous=normal", nullptr, nullptr, nullptr) == SQLITE_OK;
  ok = ok && sqlite3_prepare_v2(db, maxId.c_str(), -1, &statement, nullptr) == SQLITE_OK;
  ok = ok && sqlite3_step(statement) == SQLITE_ROW;
  const int64_t firstId = ok ? sqlite3_column_int64(statement, 0) + 1 : 0;
  sqlite3_finalize(statement);
  ok = ok && sqlite3_exec(db, "begin", nullptr, nullptr, nullptr) == SQLITE_OK;
  ok = ok && sqlite3_prepare_v2(db, insert.c_str(), -1, &statement, nullptr) == SQLITE_OK;
  for (uint32_t i = 0; ok && i < rows; ++i) {
    bindRow(statement, i, firstId + i);
    ok = sqlite3_step(statement) == SQLITE_DONE;
    sqlite3_reset(statement);
  }
  sqlite3_finalize(statement);
  ok = ok && sqlite3_exec(db, "commit", nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return ok;
}

// Points the library at the target; false when its server is not configured.
inline bool Use(const Target& target, const std::string& options = "") {
  const std::string config = ConfigText(target, options);
  return !config.empty() && dbInitialize(config.c_str()) == 0;
}

inline bool UseOrSkip(benchmark::State& state, const Target& target,
                      const std::string& options = "") {
  if (Use(target, options)) return true;
  state.SkipWithError((std::string(target.envVar) + " is not set or unreachable").c_str());
  return false;
}

struct CreatedTable {
  const Target* target;
  std::string name;
};
inline std::vector<CreatedTable> created_tables;

// Whether `table` is still to be created on the target the library uses; if
// so, the run owns it and drops it at the end.
inline bool ToCreate(const Target& target, const std::string& table) {
  if (dbIsTableExist(Token(), table.c_str())) return false;
  created_tables.push_back({&target, table});
  return true;
}

inline int RunThenDropTables(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  for (const CreatedTable& table : created_tables)
    if (Use(*table.target)) dbRemoveTable(Token(), table.name.c_str(), nullptr, 0);
  return 0;
}

// Times `read(&block, &size)`, an export that hands out a malloc'd block,
// which must hold `rows` records of `recordSize` bytes.
template <typename Record, typename Read>
void TimeBlockReads(benchmark::State& state, uint32_t rows, uint32_t recordSize, Read read) {
  for (auto _ : state) {
    Record* block = nullptr;
    uint32_t size = 0;
    const bool ok = read(&block, &size) == 0 && size == rows * recordSize;
    std::free(block);
    if (!ok) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * rows);
}

// A bare ODBC connection opened the way the library opens one.
class BareConnection {
 public:
  explicit BareConnection(const Target& target) : BareConnection(LoginOf(target)) {}
  explicit BareConnection(const Login& login) {
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env_);
    SQLSetEnvAttr(env_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env_, &dbc_);
    SQLSetConnectAttr(dbc_, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(7), 0);
    connected_ = SQL_SUCCEEDED(SQLConnect(dbc_, (SQLCHAR*)login.dsn.c_str(), SQL_NTS,
                                          (SQLCHAR*)login.user.c_str(), SQL_NTS,
                                          (SQLCHAR*)login.password.c_str(), SQL_NTS));
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
  bool Execute(const std::string& sql) { return Execute(sql.c_str()); }

  // A static scrollable cursor, as the library's readers open theirs; it
  // replaces the previous one.
  bool OpenCursor(const std::string& sql) {
    if (cursor_) SQLFreeHandle(SQL_HANDLE_STMT, cursor_);
    SQLAllocHandle(SQL_HANDLE_STMT, dbc_, &cursor_);
    SQLSetStmtAttr(cursor_, SQL_ATTR_CURSOR_TYPE, reinterpret_cast<SQLPOINTER>(SQL_CURSOR_STATIC),
                   SQL_IS_INTEGER);
    SQLSetStmtAttr(cursor_, SQL_ATTR_CURSOR_SCROLLABLE,
                   reinterpret_cast<SQLPOINTER>(SQL_SCROLLABLE), SQL_IS_INTEGER);
    return SQL_SUCCEEDED(SQLExecDirect(cursor_, (SQLCHAR*)sql.c_str(), SQL_NTS));
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

  // A value of at most 8 bytes of the current row; a NULL leaves `target` alone.
  void Read(SQLUSMALLINT column, SQLSMALLINT type, void* target, SQLLEN size) {
    unsigned char value[8] = {};
    SQLLEN indicator = 0;
    SQLGetData(cursor_, column, type, value, size, &indicator);
    if (indicator != SQL_NULL_DATA) std::memcpy(target, value, size);
  }
  void ReadInteger(SQLUSMALLINT column, void* target) { Read(column, SQL_C_ULONG, target, 4); }
  void ReadDouble(SQLUSMALLINT column, void* target) { Read(column, SQL_C_DOUBLE, target, 8); }
  void ReadText(SQLUSMALLINT column, char* target, SQLLEN capacity) {
    SQLLEN indicator = 0;
    SQLGetData(cursor_, column, SQL_C_CHAR, target, capacity, &indicator);
  }
  void ColumnName(SQLUSMALLINT column, char* name) {
    SQLSMALLINT length = 0, type = 0, digits = 0, nullable = 0;
    SQLULEN size = 0;
    SQLDescribeCol(cursor_, column, (SQLCHAR*)name, 64, &length, &type, &size, &digits, &nullable);
  }

 private:
  SQLHENV env_ = SQL_NULL_HENV;
  SQLHDBC dbc_ = SQL_NULL_HDBC;
  SQLHSTMT cursor_ = SQL_NULL_HSTMT;
  bool connected_ = false;
};

// Fills a table fast, `perStatement` rows to an insert: `head` ends in
// "values ", `row(i)` gives the parenthesised values of row i.
template <typename RowText>
bool InsertRows(BareConnection& db, const std::string& head, uint32_t rows,
                uint32_t perStatement, RowText row) {
  std::string sql;
  for (uint32_t i = 0; i < rows; ++i) {
    sql += (sql.empty() ? head : ", ") + row(i);
    if ((i + 1) % perStatement == 0 || i + 1 == rows) {
      if (!db.Execute(sql)) return false;
      sql.clear();
    }
  }
  return true;
}

// The data tables of the record and statistics benchmarks: id, time, ms and
// modify, then 8 float columns v1..v8.
inline constexpr int kValueColumns = 8;
inline constexpr uint32_t kDataRecordSize = 16 + 8 * kValueColumns;

// The bytes of such a table's DataTableInfo.
inline std::vector<unsigned char> DataTableBytes(const std::string& name) {
  std::vector<unsigned char> bytes(sizeof(DataTableInfo) + kValueColumns * sizeof(ColumnInfo));
  auto* info = reinterpret_cast<DataTableInfo*>(bytes.data());
  std::snprintf(info->name, sizeof info->name, "%s", name.c_str());
  info->recordSize = kDataRecordSize;
  info->columnCount = kValueColumns;
  for (int c = 0; c < kValueColumns; ++c) {
    info->columns[c].type = SCADASTORE_VALUE_FLOAT;
    std::snprintf(info->columns[c].name, sizeof info->columns[c].name, "v%d", c + 1);
  }
  return bytes;
}

// ---- Tables filled by the database itself ----

inline constexpr uint32_t kStart = 1672531200;  // 2023-01-01 00:00:00 UTC

enum class Family { Data, Alarm, Log };

// The columns a fill writes (empty: all) and their values for row i (from 1),
// a second apart.
struct Fill {
  std::vector<const char*> columns;
  std::string values;
};

inline Fill FillOf(Family family) {
  const std::string time = std::to_string(kStart) + " + i - 1";
  switch (family) {
    case Family::Data: {
      std::string values = "i, " + time + ", 0, 0";
      for (int c = 1; c <= kValueColumns; ++c)
        values += ", (i % 997) * 0.25 + " + std::to_string(c);
      return {{}, values};
    }
    case Family::Alarm:
      return {{"id", "station", "tag", "tagtype", "alarmtype", "value", "status", "recovertime",
               "arisetime", "ip", "description", "millisecond", "batch", "alarmlevel"},
              "i, 'north', 'temp', 0, 1, (i % 997) * 0.25, 0, 0, " + time +
                  ", 167772161, 'level high', 0, 'b1', i % 4"};
    case Family::Log:
      return {{"id", "logtime", "millisecond", "logtype", "source", "loginfo", "operator",
               "monitor", "logverify", "ip", "ackinfo", "batch"},
              "i, " + time + ", 0, 1, 'console', 'pump 3 started', 'anna', 'm1', 'v', 0, "
              "'seen', 'b1'"};
  }
  return {};
}

// One statement that inserts `rows` rows, numbered by the database.
inline std::string FillStatement(const Target& target, Family family, const std::string& table,
                          uint32_t rows) {
  const Fill fill = FillOf(family);
  const std::string n = std::to_string(rows);
  std::string insert = "insert into " + Quote(target, table);
  for (const char* column : fill.columns)
    insert += (column == fill.columns.front() ? " (" : ", ") + Quote(target, column);
  if (!fill.columns.empty()) insert += ")";
  insert += " select " + fill.values;
  if (target.kind == kPostgres.kind) return insert + " from generate_series(1, " + n + ") as s(i)";
  if (target.kind == kMariadb.kind)
    return insert + " from (select seq as i from seq_1_to_" + n + ") as s";
  return "with recursive s(i) as (select 1 union all select i + 1 from s where i < " + n + ") " +
         insert + " from s";
}

}  // namespace bench
