// A table of 1,000,000 rows of 8 float columns per database (--rows N for
// another size), each library call beside its baseline, interleaved, each
// measure in a child process of its own so that its peak memory is its own:
//   position: sgGetRecordByIndex and sgGetIdByIndex of the last row beside a
//     bare "select * ... order by id asc limit 1 offset N-1";
//   read: sgGetRecord of the whole table beside the best bare ODBC read of
//     the same rows into a block (forward-only, streamed where the driver
//     can; a realloc'd block, as the library's) and, on SQLite, the bare read
//     of the exact form the library reads there and the C API; peak memory
//     over the block handed out;
//     sgGetRecord and sgGetRecordBySQL of the same select as the caller's
//     own statement beside the same bare read; peak over the block and over
//     the text table (these alone with --caller);
//   write: sgBatchSetRecord of 100,000 records in one call beside the SQLite
//     C API's prepared insert in one transaction, PostgreSQL's COPY and
//     MariaDB's LOAD DATA LOCAL INFILE, each through its own client, in
//     alternating order, with the medians (these alone with --writes;
//     --write-repeat W sets their repeats apart);
//   alarms, logs: almGetAlarmByQuery and logGetLogByTime of as many alarms
//     and log entries, beside the bare read of the same select; peak memory
//     over the block handed out (these alone with --alarms-logs).
// Every call connects unpooled, as does its baseline. Usage:
//   large_table_bench [--rows N] [--repeat R] [--write-repeat W]
//                     [--alarms-logs | --writes | --caller]
//                     [sqlite|postgres|mariadb ...]
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <functional>

#include "bench_support.h"
#include "core/exact_double.h"

namespace {

using namespace bench;

constexpr uint32_t kWriteRows = 100000;
// psqlODBC's UseDeclareFetch and Fetch options, as the library sets them.
constexpr SQLINTEGER kPsqlUseDeclareFetch = 65539, kPsqlFetchRows = 65541;

// The columns a bare read takes, in the order of the table's: an integer, a
// double, or text of the given size; the bytes follow each other in a record.
constexpr int kInteger = 0, kDouble = -1;
const std::vector<int> kDataColumns = {kInteger, kInteger, kInteger, kInteger, kDouble, kDouble,
                                       kDouble,  kDouble,  kDouble,  kDouble,  kDouble,  kDouble};
const std::vector<int> kAlarmColumns = {kInteger, 32,       32,       kInteger, kInteger,
                                        kDouble,  kInteger, kInteger, kInteger, kInteger,
                                        128,      kInteger, 64,       kInteger};
const std::vector<int> kLogColumns = {kInteger, kInteger, kInteger, kInteger, 64,  250, 32,
                                      32,       64,       kInteger, 256,      64,  128};

// Kind 3 on SQLite: the bracket dialect of kind 1, with batches.
constexpr Target kSqliteBatches{"SCADASTORE_TEST_SQLITE", 3, '[', ']'};

struct Measure {
  double seconds = -1;     // -1: failed
  double peakMb = 0;       // resident memory reached above the start
  double handedOutMb = 0;  // what the work was handed, where it says so
  double cpuSeconds = 0;
};

// Set by a child's work to the size of what it was handed.
double handed_out_mb = 0;

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) { return time.tv_sec + time.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

long StatusKb(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field));
  return 0;
}

// Runs `work` in a child whose peak resident memory starts at its current size.
Measure InChild(const std::function<bool()>& work) {
  int channel[2];
  if (pipe(channel) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << "5";
    const long startKb = StatusKb("VmRSS:");
    const auto start = std::chrono::steady_clock::now();
    const double startCpu = CpuSeconds();
    Measure measure;
    if (work()) {
      measure.seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      measure.cpuSeconds = CpuSeconds() - startCpu;
      measure.peakMb = (StatusKb("VmHWM:") - startKb) / 1024.0;
      measure.handedOutMb = handed_out_mb;
    }
    (void)!write(channel[1], &measure, sizeof measure);
    _exit(0);
  }
  close(channel[1]);
  Measure measure;
  if (read(channel[0], &measure, sizeof measure) != sizeof measure) measure = {};
  close(channel[0]);
  waitpid(child, nullptr, 0);
  return measure;
}

// A bare connection as the library makes it, streaming forward-only results
// where the driver can (StepAPI for SQLite, UseDeclareFetch for psqlODBC).
struct Bare {
  SQLHENV env = SQL_NULL_HENV;
  SQLHDBC dbc = SQL_NULL_HDBC;
  SQLHSTMT stmt = SQL_NULL_HSTMT;
  bool ok = false;

  explicit Bare(const Target& target) {
    const Login login = LoginOf(target);
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
    if (target.kind == kPostgres.kind) {
      ok = SQL_SUCCEEDED(SQLConnect(dbc, (SQLCHAR*)login.dsn.c_str(), SQL_NTS,
                                    (SQLCHAR*)login.user.c_str(), SQL_NTS,
                                    (SQLCHAR*)login.password.c_str(), SQL_NTS)) &&
           SQL_SUCCEEDED(SQLSetConnectAttr(dbc, kPsqlFetchRows, (SQLPOINTER)1000, 0)) &&
           SQL_SUCCEEDED(SQLSetConnectAttr(dbc, kPsqlUseDeclareFetch, (SQLPOINTER)1, 0));
    } else {
      const std::string text = "DSN=" + login.dsn + ";UID=" + login.user + ";PWD=" +
                               login.password + ";StepAPI=1";
      ok = SQL_SUCCEEDED(SQLDriverConnect(dbc, nullptr, (SQLCHAR*)text.c_str(), SQL_NTS,
                                          nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT));
    }
    ok = ok && SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt));
  }
  ~Bare() {
    if (stmt) SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    if (ok) SQLDisconnect(dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
  }
  bool Run(const std::string& sql) {
    return ok && SQL_SUCCEEDED(SQLExecDirect(stmt, (SQLCHAR*)sql.c_str(), SQL_NTS));
  }
  // The current row as a record: each column in turn into the next bytes,
  // its width from `widths` (kInteger, kDouble or a text's size); `exact`
  // reads doubles in the text of scadastore::ExactSqliteDouble.
  void ReadRecord(unsigned char* record, const std::vector<int>& widths, bool exact = false) {
    SQLLEN indicator = 0;
    SQLUSMALLINT column = 1;
    for (const int width : widths) {
      if (width == kInteger) {
        SQLGetData(stmt, column, SQL_C_ULONG, record, 4, &indicator);
      } else if (width == kDouble && !exact) {
        SQLGetData(stmt, column, SQL_C_DOUBLE, record, 8, &indicator);
      } else if (width == kDouble) {
        char text[64];
        SQLGetData(stmt, column, SQL_C_CHAR, text, sizeof text, &indicator);
        const double value = scadastore::ParseExactDouble(text).value_or(0);
        std::memcpy(record, &value, 8);
      } else {
        SQLGetData(stmt, column, SQL_C_CHAR, record, width, &indicator);
      }
      record += width == kInteger ? 4 : width == kDouble ? 8 : width;
      ++column;
    }
  }
};

std::string SelectAll(const Target& target, const std::string& table) {
  return "select * from " + Quote(target, table) + " order by " + Quote(target, "id") + " asc";
}

bool BarePosition(const Target& target, const std::string& table, uint32_t position) {
  Bare db(target);
  unsigned char record[kDataRecordSize];
  if (!db.Run(SelectAll(target, table) + " limit 1 offset " + std::to_string(position - 1)) ||
      !SQL_SUCCEEDED(SQLFetch(db.stmt)))
    return false;
  db.ReadRecord(record, kDataColumns);
  return true;
}

// The select of every row with each double in the exact form the library
// reads on SQLite, whose driver passes a double through 15-digit text.
std::string ExactSelectAll(const Target& target, const std::string& table) {
  std::string select = "select " + Quote(target, "id") + "," + Quote(target, "time") + "," +
                       Quote(target, "ms") + "," + Quote(target, "modify");
  for (int c = 1; c <= kValueColumns; ++c)
    select += "," + scadastore::ExactSqliteDouble(Quote(target, "v" + std::to_string(c)));
  return select + SelectAll(target, table).substr(std::strlen("select *"));
}

// Reads every row of `select` into a block of `recordSize` records grown by
// doubling, as the library does, fetching rowsets of 512 rows into bound
// column buffers (one driver call a rowset) and copying each value into its
// record: widths as Bare::ReadRecord takes them.
bool BareRead(const Target& target, const std::string& select, const std::vector<int>& columns,
              size_t recordSize, uint32_t rows, bool exact = false) {
  constexpr SQLULEN kRowsetRows = 512;
  Bare db(target);
  if (!db.Run(select)) return false;
  const size_t count = columns.size();
  std::vector<SQLLEN> lengths(count);
  std::vector<std::vector<char>> values(count);
  std::vector<std::vector<SQLLEN>> indicators(count, std::vector<SQLLEN>(kRowsetRows));
  SQLULEN fetched = 0;
  bool ok = SQL_SUCCEEDED(SQLSetStmtAttr(db.stmt, SQL_ATTR_ROW_ARRAY_SIZE,
                                         reinterpret_cast<SQLPOINTER>(kRowsetRows), 0)) &&
            SQL_SUCCEEDED(SQLSetStmtAttr(db.stmt, SQL_ATTR_ROWS_FETCHED_PTR, &fetched, 0));
  for (size_t c = 0; ok && c < count; ++c) {
    const int width = columns[c];
    const SQLSMALLINT type = width == kInteger                ? SQL_C_ULONG
                             : width == kDouble && !exact ? SQL_C_DOUBLE
                                                          : SQL_C_CHAR;
    lengths[c] = width == kInteger ? 4 : width == kDouble ? (exact ? 64 : 8) : width;
    values[c].resize(kRowsetRows * static_cast<size_t>(lengths[c]));
    ok = SQL_SUCCEEDED(SQLBindCol(db.stmt, static_cast<SQLUSMALLINT>(c + 1), type,
                                  values[c].data(), lengths[c], indicators[c].data()));
  }
  unsigned char* block = nullptr;
  size_t read = 0, capacity = 0;
  while (ok && SQL_SUCCEEDED(SQLFetch(db.stmt))) {
    for (SQLULEN r = 0; ok && r < fetched; ++r, ++read) {
      if (read == capacity) {
        capacity = std::max<size_t>(capacity * 2, 1024);
        auto* grown = static_cast<unsigned char*>(std::realloc(block, capacity * recordSize));
        if (!(ok = grown != nullptr)) break;
        block = grown;
      }
      unsigned char* record = block + read * recordSize;
      std::memset(record, 0, recordSize);
      for (size_t c = 0; c < count; ++c) {
        const int width = columns[c];
        const char* value = values[c].data() + r * static_cast<size_t>(lengths[c]);
        if (indicators[c][r] != SQL_NULL_DATA) {
          if (width == kDouble && exact) {
            const double exactValue = scadastore::ParseExactDouble(value).value_or(0);
            std::memcpy(record, &exactValue, 8);
          } else if (width == kInteger || width == kDouble) {
            std::memcpy(record, value, static_cast<size_t>(lengths[c]));
          } else {
            std::memcpy(record, value, strnlen(value, static_cast<size_t>(width) - 1));
          }
        }
        record += width == kInteger ? 4 : width == kDouble ? 8 : width;
      }
    }
  }
  std::free(block);
  return ok && read == rows;
}

bool SqliteApiRead(const Target& target, const std::string& table, uint32_t rows) {
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  std::vector<unsigned char> block;
  bool ok = sqlite3_open(SqliteFile(target).c_str(), &db) == SQLITE_OK &&
            sqlite3_prepare_v2(db, SelectAll(target, table).c_str(), -1, &statement, nullptr) ==
                SQLITE_OK;
  size_t count = 0;
  while (ok && sqlite3_step(statement) == SQLITE_ROW) {
    if (block.size() < (count + 1) * kDataRecordSize)
      block.resize(std::max<size_t>(block.size() * 2, 1024 * kDataRecordSize));
    unsigned char* record = block.data() + count++ * kDataRecordSize;
    for (int i = 0; i < 4; ++i) {
      const auto value = static_cast<uint32_t>(sqlite3_column_int64(statement, i));
      std::memcpy(record + 4 * i, &value, 4);
    }
    for (int c = 0; c < kValueColumns; ++c) {
      const double value = sqlite3_column_double(statement, 4 + c);
      std::memcpy(record + 16 + 8 * c, &value, 8);
    }
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return ok && count == rows;
}

std::vector<unsigned char> Records(uint32_t count) {
  std::vector<unsigned char> bytes(size_t{count} * kDataRecordSize);
  for (uint32_t i = 0; i < count; ++i) {
    unsigned char* record = bytes.data() + size_t{i} * kDataRecordSize;
    const uint32_t head[4] = {0, kStart + i, i % 1000, 0};
    std::memcpy(record, head, sizeof head);
    for (int c = 0; c < kValueColumns; ++c) {
      const double value = 20.0 + c + (i % 1000) / 3.0;
      std::memcpy(record + 16 + 8 * c, &value, sizeof value);
    }
  }
  return bytes;
}

bool SqliteApiWrite(const Target& target, const std::string& table,
                    const std::vector<unsigned char>& records) {
  std::string insert = "insert into " + Quote(target, table) + " values (?,?,?,0";
  for (int c = 0; c < kValueColumns; ++c) insert += ",?";
  insert += ")";
  const auto count = static_cast<uint32_t>(records.size() / kDataRecordSize);
  return SqliteApiInsert(target, table, insert, count,
                         [&](sqlite3_stmt* statement, uint32_t i, int64_t id) {
                           const unsigned char* record = records.data() + size_t{i} * kDataRecordSize;
                           uint32_t head[3];
                           std::memcpy(head, record, sizeof head);
                           sqlite3_bind_int64(statement, 1, id);
                           sqlite3_bind_int64(statement, 2, head[1]);
                           sqlite3_bind_int64(statement, 3, head[2]);
                           for (int c = 0; c < kValueColumns; ++c) {
                             double value;
                             std::memcpy(&value, record + 16 + 8 * c, 8);
                             sqlite3_bind_double(statement, 4 + c, value);
                           }
                         });
}

// The data source's entry `key` in $ODBCINI.
std::string IniValue(const Target& target, const std::string& key) {
  std::ifstream in(std::getenv("ODBCINI") ? std::getenv("ODBCINI") : "");
  std::string line, section = "[" + LoginOf(target).dsn + "]";
  bool inSection = false;
  while (std::getline(in, line)) {
    if (!line.empty() && line[0] == '[') inSection = line == section;
    if (inSection && line.rfind(key + "=", 0) == 0) return line.substr(key.size() + 1);
  }
  return {};
}

// The records as CSV rows piped into a database's own client, `command`.
bool PipeCsv(const std::string& command, const std::vector<unsigned char>& records) {
  FILE* client = popen(command.c_str(), "w");
  if (!client) return false;
  const size_t count = records.size() / kDataRecordSize;
  for (size_t i = 0; i < count; ++i) {
    const unsigned char* record = records.data() + i * kDataRecordSize;
    uint32_t head[3];
    std::memcpy(head, record, sizeof head);
    std::fprintf(client, "%zu,%u,%u,0", i + 1, head[1], head[2]);
    for (int c = 0; c < kValueColumns; ++c) {
      double value;
      std::memcpy(&value, record + 16 + 8 * c, 8);
      std::fprintf(client, ",%.17g", value);
    }
    std::fputc('\n', client);
  }
  return pclose(client) == 0;
}

// COPY ... FROM STDIN through psql.
bool PostgresCopy(const Target& target, const std::string& table,
                  const std::vector<unsigned char>& records) {
  const Login login = LoginOf(target);
  return PipeCsv("PGPASSWORD='" + login.password + "' psql -q -h " +
                     IniValue(target, "Servername") + " -p " + IniValue(target, "Port") + " -U " +
                     login.user + " " + IniValue(target, "Database") + " -c 'copy " + table +
                     " from stdin (format csv)'",
                 records);
}

// LOAD DATA LOCAL INFILE through the mariadb client, which reads its stdin.
bool MariadbLoadData(const Target& target, const std::string& table,
                     const std::vector<unsigned char>& records) {
  const Login login = LoginOf(target);
  return PipeCsv("MYSQL_PWD='" + login.password + "' mariadb --no-defaults --local-infile=1 -h " +
                     IniValue(target, "SERVER") + " -P " + IniValue(target, "PORT") + " -u " +
                     login.user + " " + IniValue(target, "DATABASE") +
                     " -e \"load data local infile '/dev/stdin' into table " + table +
                     " fields terminated by ','\"",
                 records);
}

void Print(const char* what, const Target& target, const Measure& library, const Measure& base,
           const char* baseName) {
  std::printf("%-10s kind %d  library %8.3f s %8.1f MB   %-22s %8.3f s %8.1f MB   ratio %.2f\n",
              what, target.kind, library.seconds, library.peakMb, baseName, base.seconds,
              base.peakMb, library.seconds / base.seconds);
  std::fflush(stdout);
}

// Runs `read(&block, &size)`, an export that hands out a block, in a child;
// the block must be `bytes` long.
template <class Record, class Read>
Measure HandedOutBlock(uint64_t bytes, Read read) {
  return InChild([&] {
    Record* block = nullptr;
    uint32_t size = 0;
    const bool ok = read(&block, &size) == 0 && size == bytes;
    std::free(block);
    return ok;
  });
}

double LoadAverage() {
  double load = 0;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

// almGetAlarmByQuery and logGetLogByTime of a table of `rows` alarms and log
// entries, a second apart, each read whole beside the bare read of its select.
void ReadAlarmsAndLogs(const Target& target, uint32_t rows, int repeat) {
  const std::string alarms = TableName("alarms", std::to_string(rows).c_str());
  const std::string logs = TableName("logs", std::to_string(rows).c_str());
  BareConnection db(target);
  if (!ToCreate(target, alarms) || almEnsureTableExist(Token(), alarms.c_str()) != 0 ||
      !db.Execute(FillStatement(target, Family::Alarm, alarms, rows)) ||
      !ToCreate(target, logs) || logEnsureTableExist(Token(), logs.c_str()) != 0 ||
      !db.Execute(FillStatement(target, Family::Log, logs, rows))) {
    std::printf("filling %s and %s failed\n", alarms.c_str(), logs.c_str());
    return;
  }
  const uint32_t last = kStart + rows - 1;
  std::printf("%u alarms, block %.1f MB; %u log entries, block %.1f MB; load average %.1f\n",
              rows, rows * double{sizeof(AlarmRecord)} / (1 << 20), rows,
              rows * double{sizeof(LogRecord)} / (1 << 20), LoadAverage());
  for (int r = 0; r < repeat; ++r) {
    const AlarmQuery query{kStart, last, 0, 0, 0, 0, 0, 0};
    const Measure alarm = HandedOutBlock<AlarmRecord>(
        uint64_t{rows} * sizeof(AlarmRecord), [&](AlarmRecord** block, uint32_t* size) {
          return almGetAlarmByQuery(Token(), alarms.c_str(), &query, block, size);
        });
    Print("alarms", target, alarm, InChild([&] {
            return BareRead(target, RangeSelect(target, alarms, "arisetime", kStart, last),
                            kAlarmColumns, sizeof(AlarmRecord), rows);
          }),
          "bare ODBC, rowsets");
    const Measure log = HandedOutBlock<LogRecord>(
        uint64_t{rows} * sizeof(LogRecord), [&](LogRecord** block, uint32_t* size) {
          return logGetLogByTime(Token(), logs.c_str(), kStart, last, block, size);
        });
    Print("logs", target, log, InChild([&] {
            return BareRead(target, RangeSelect(target, logs, "logtime", kStart, last),
                            kLogColumns, sizeof(LogRecord), rows);
          }),
          "bare ODBC, rowsets");
  }
}

void Run(const Target& target, uint32_t rows, int repeat, bool callerOnly) {
  const std::string table = TableName("large", std::to_string(rows).c_str());
  std::vector<unsigned char> info = DataTableBytes(table);
  auto* data = reinterpret_cast<DataTableInfo*>(info.data());
  {
    BareConnection db(target);
    if (!ToCreate(target, table) || sgEnsureTableExist(Token(), data, nullptr, 0) != 0 ||
        !db.Execute(FillStatement(target, Family::Data, table, rows))) {
      std::printf("filling %s failed\n", table.c_str());
      return;
    }
  }
  std::printf("%u rows, block %.1f MB, load average %.1f\n", rows,
              rows * double{kDataRecordSize} / (1 << 20), LoadAverage());
  for (int r = 0; r < repeat && !callerOnly; ++r) {
    const Measure bare = InChild([&] { return BarePosition(target, table, rows); });
    const Measure record = InChild([&] {
      std::vector<unsigned char> one(kDataRecordSize);
      return sgGetRecordByIndex(Token(), data, rows, reinterpret_cast<DataRecord*>(one.data()),
                                kDataRecordSize) == 0;
    });
    const Measure id = InChild([&] { return sgGetIdByIndex(Token(), data, rows) == rows; });
    Print("position", target, record, bare, "limit/offset");
    Print("id", target, id, bare, "limit/offset");
  }
  const double blockMb = uint64_t{rows} * kDataRecordSize / double(1 << 20);
  for (int r = 0; r < repeat; ++r) {
    const Measure library =
        callerOnly ? Measure{}
                   : HandedOutBlock<void>(uint64_t{rows} * kDataRecordSize,
                                          [&](void** block, uint32_t* size) {
                                            return sgGetRecord(Token(), data, block, size, nullptr);
                                          });
    const Measure bare = InChild([&] {
      return BareRead(target, SelectAll(target, table), kDataColumns, kDataRecordSize, rows);
    });
    if (!callerOnly) Print("read", target, library, bare, "bare ODBC, rowsets");
    const Measure caller = HandedOutBlock<void>(
        uint64_t{rows} * kDataRecordSize, [&](void** block, uint32_t* size) {
          return sgGetRecord(Token(), data, block, size, SelectAll(target, table).c_str());
        });
    Print("read-own", target, caller, bare, "bare ODBC, rowsets");
    std::printf("read-own   kind %d  block %.1f MB, peak / block %.2f\n", target.kind, blockMb,
                caller.peakMb / blockMb);
    if (target.kind != kPostgres.kind && target.kind != kMariadb.kind && !callerOnly)
      Print("read", target, library, InChild([&] {
              return BareRead(target, ExactSelectAll(target, table), kDataColumns,
                              kDataRecordSize, rows, true);
            }),
            "bare rowsets, exact");
    const Measure text = InChild([&] {
      uint32_t rowCount = 0, fields = 0, textBytes = 0, *offsets = nullptr;
      char* cells = nullptr;
      const bool ok = sgGetRecordBySQL(Token(), data, SelectAll(target, table).c_str(), nullptr,
                                       &rowCount, &fields, &offsets, &cells, &textBytes) == 0 &&
                      rowCount == rows;
      // The offsets hold a place for every column of the result, skipped ones too.
      handed_out_mb = (textBytes + (rows + 1.0) * 12 * 4) / (1 << 20);
      std::free(offsets);
      std::free(cells);
      return ok;
    });
    Print("read-sql", target, text, bare, "bare ODBC, rowsets");
    std::printf("read-sql   kind %d  text and offsets %.1f MB, peak / those %.2f\n", target.kind,
                text.handedOutMb, text.peakMb / text.handedOutMb);
    if (target.kind != kPostgres.kind && target.kind != kMariadb.kind && !callerOnly)
      Print("read", target, library,
            InChild([&] { return SqliteApiRead(target, table, rows); }), "SQLite C API");
  }
}

// The middle of `values` (the mean of the two middle ones when even).
double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// "median (least to most)" of `values`.
void PrintSpread(const std::vector<double>& values) {
  std::printf("%.2f (%.2f to %.2f)", Median(values),
              *std::min_element(values.begin(), values.end()),
              *std::max_element(values.begin(), values.end()));
}

// sgBatchSetRecord of 100,000 records into an empty table of the same columns
// beside the database's own bulk path, `repeat` times. One unmeasured write of
// each first grows the file and warms the caches; then the two alternate which
// goes first, so neither always follows the other's delete.
void Write(const Target& target, uint32_t rows, int repeat) {
  const std::string empty = TableName("write", std::to_string(rows).c_str());
  std::vector<unsigned char> emptyInfo = DataTableBytes(empty);
  auto* written = reinterpret_cast<DataTableInfo*>(emptyInfo.data());
  const Target& writer = target.kind == kSqlite.kind ? kSqliteBatches : target;
  if (!Use(writer) || !ToCreate(writer, empty) ||
      sgEnsureTableExist(Token(), written, nullptr, 0) != 0)
    return;
  const std::vector<unsigned char> records = Records(kWriteRows);
  const auto library = [&] {
    sgDeleteRecord(Token(), written, nullptr);
    return InChild([&] {
      return sgBatchSetRecord(Token(), written, records.data(),
                              static_cast<uint32_t>(records.size())) == 0;
    });
  };
  const char* baseName = writer.kind == kPostgres.kind   ? "COPY (psql)"
                         : writer.kind == kMariadb.kind ? "LOAD DATA (client)"
                                                         : "SQLite C API";
  const auto baseline = [&] {
    sgDeleteRecord(Token(), written, nullptr);
    return InChild([&] {
      if (writer.kind == kPostgres.kind) return PostgresCopy(writer, empty, records);
      if (writer.kind == kMariadb.kind) return MariadbLoadData(writer, empty, records);
      return SqliteApiWrite(writer, empty, records);
    });
  };
  library();
  baseline();
  std::vector<double> libraryTimes, baseTimes, ratios, cpuRatios;
  for (int r = 0; r < repeat; ++r) {
    Measure first = r % 2 ? baseline() : library();
    Measure second = r % 2 ? library() : baseline();
    if (r % 2) std::swap(first, second);
    Print("write", writer, first, second, baseName);
    if (first.seconds < 0 || second.seconds < 0) continue;
    libraryTimes.push_back(first.seconds);
    baseTimes.push_back(second.seconds);
    ratios.push_back(second.seconds / first.seconds);
    cpuRatios.push_back(second.cpuSeconds / first.cpuSeconds);
  }
  if (ratios.empty()) return;
  std::printf("write      kind %d  medians of %zu: library %.3f s, %s %.3f s, speed of the "
              "baseline ",
              writer.kind, ratios.size(), Median(libraryTimes), baseName, Median(baseTimes));
  PrintSpread(ratios);
  // The C API writes in this process; the clients of COPY and LOAD DATA do not.
  if (writer.kind != kPostgres.kind && writer.kind != kMariadb.kind) {
    std::printf(", by CPU time ");
    PrintSpread(cpuRatios);
  }
  std::printf(", load average %.1f\n", LoadAverage());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  uint32_t rows = 1000000;
  int repeat = 3, writeRepeat = 0;
  enum { kAll, kAlarmsLogs, kWrites, kCaller } part = kAll;
  std::vector<const Target*> targets;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--rows" && i + 1 < argc) rows = static_cast<uint32_t>(std::atol(argv[++i]));
    else if (arg == "--repeat" && i + 1 < argc) repeat = std::atoi(argv[++i]);
    else if (arg == "--write-repeat" && i + 1 < argc) writeRepeat = std::atoi(argv[++i]);
    else if (arg == "--alarms-logs") part = kAlarmsLogs;
    else if (arg == "--writes") part = kWrites;
    else if (arg == "--caller") part = kCaller;
    else if (arg == "sqlite") targets.push_back(&kSqlite);
    else if (arg == "postgres") targets.push_back(&kPostgres);
    else if (arg == "mariadb") targets.push_back(&kMariadb);
    else {
      std::printf(
          "usage: large_table_bench [--rows N] [--repeat R] [--write-repeat W]"
          " [--alarms-logs | --writes | --caller]"
          " [sqlite|postgres|mariadb ...]\n");
      return arg == "--help" ? 0 : 2;
    }
  }
  if (targets.empty()) targets = {&kSqlite, &kPostgres, &kMariadb};
  for (const Target* target : targets) {
    if (!Use(*target)) {
      std::printf("%s is not set or unreachable\n", target->envVar);
      continue;
    }
    if (part == kAll || part == kCaller) Run(*target, rows, repeat, part == kCaller);
    if (part == kAll || part == kAlarmsLogs) ReadAlarmsAndLogs(*target, rows, repeat);
    if (part == kAll || part == kWrites) Write(*target, rows, writeRepeat > 0 ? writeRepeat : repeat);
  }
  for (const CreatedTable& table : created_tables)
    if (Use(*table.target)) dbRemoveTable(Token(), table.name.c_str(), nullptr, 0);
  return 0;
}
