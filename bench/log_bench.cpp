// logSetLog of 1,000 records and logGetLogByTime over 100,000 entries, each
// beside bare ODBC making the same statements, fetches and column reads; and
// logSetLog of 100,000 records on SQLite beside the SQLite C API.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"

namespace {

constexpr uint32_t kWriteRecords = 1000;
constexpr uint32_t kBatchRecords = 100000;
constexpr uint32_t kReadEntries = 100000;
constexpr uint32_t kRecordSize = sizeof(LogRecord);

using namespace bench;

std::string TableName(const char* role) { return bench::TableName("log", role); }

// Points the library at the target and makes sure `table` exists.
bool Prepare(benchmark::State& state, const Target& target, const std::string& table) {
  if (!UseOrSkip(state, target)) return false;
  if (ToCreate(target, table)) logEnsureTableExist(Token(), table.c_str());
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

void LibrarySetLog(benchmark::State& state, const Target& target, uint32_t count = kWriteRecords) {
  const std::string table = TableName("write_lib");
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<LogRecord> records = Records(count);
  for (auto _ : state) {
    if (logSetLog(Token(), table.c_str(), records.data(), count * kRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * count);
}

// The same records through the SQLite C API's prepared insert, values bound.
void SqliteApiSetLog(benchmark::State& state, const Target& target, uint32_t count) {
  const std::string table = TableName("write_c");
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<LogRecord> records = Records(count);
  const std::string insert =
      "insert into " + Quote(target, table) + " (" +
      ColumnList(target, {"id", "logtime", "millisecond", "logtype", "source", "loginfo",
                          "operator", "monitor", "logverify", "ip", "ackinfo", "batch"}) +
      ") values (?,?,?,?,?,?,?,?,?,?,?,?)";
  for (auto _ : state) {
    const bool ok = SqliteApiInsert(
        target, table, insert, count, [&](sqlite3_stmt* statement, uint32_t i, int64_t id) {
          const LogRecord& r = records[i];
          sqlite3_bind_int64(statement, 1, id);
          sqlite3_bind_int64(statement, 2, r.logtime);
          sqlite3_bind_int64(statement, 3, r.millisecond);
          sqlite3_bind_int64(statement, 4, r.logtype);
          sqlite3_bind_text(statement, 5, r.source, -1, SQLITE_STATIC);
          sqlite3_bind_text(statement, 6, r.loginfo, -1, SQLITE_STATIC);
          sqlite3_bind_text(statement, 7, r.operator_, -1, SQLITE_STATIC);
          sqlite3_bind_text(statement, 8, r.monitor, -1, SQLITE_STATIC);
          sqlite3_bind_text(statement, 9, r.logverify, -1, SQLITE_STATIC);
          sqlite3_bind_int64(statement, 10, r.ip);
          sqlite3_bind_text(statement, 11, r.ackinfo, -1, SQLITE_STATIC);
          sqlite3_bind_text(statement, 12, r.batch, -1, SQLITE_STATIC);
        });
    if (!ok) {
      state.SkipWithError("SQLite C API insert failed");
      return;
    }
    state.PauseTiming();
    Empty(table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BareOdbcSetLog(benchmark::State& state, const Target& target) {
  const std::string table = TableName("write_odbc");
  if (!Prepare(state, target, table)) return;
  Empty(table);
  const std::vector<LogRecord> records = Records(kWriteRecords);
  const std::string q = Quote(target, table);
  const std::string maxId = MaxIdSelect(target, table);
  const std::string insert =
      "insert into " + q + " (" +
      ColumnList(target, {"id", "logtime", "millisecond", "logtype", "source", "loginfo",
                          "operator", "monitor", "logverify", "ip", "ackinfo", "batch"}) +
      ") values(%u, %u, %u, %u, '%s', '%s', '%s', '%s', '%s', %u, '%s', '%s')";
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(maxId)) {
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
    db.Execute("delete from " + q);
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
  auto row = [&](uint32_t i) {
    const LogRecord& r = records[i];
    char text[512];
    std::snprintf(text, sizeof text, "(%u, %u, %u, %u, '%s', '%s', '%s', '%s', '', %u, '', '')",
                  i + 1, r.logtime, r.millisecond, r.logtype, r.source, r.loginfo, r.operator_,
                  r.monitor, r.ip);
    return std::string(text);
  };
  if (!InsertRows(db, head, kReadEntries, 1000, row)) {
    state.SkipWithError("filling the read table failed");
    return {};
  }
  return table;
}

void LibraryGetLogByTime(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  TimeBlockReads<LogRecord>(state, kReadEntries, kRecordSize, [&](auto* block, auto* size) {
    return logGetLogByTime(Token(), table.c_str(), 0, 0xFFFFFFFF, block, size);
  });
}

void BareOdbcGetLogByTime(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  const std::string select = RangeSelect(target, table, "logtime", 0, 0xFFFFFFFF);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select)) {
      state.SkipWithError("bare select failed");
      return;
    }
    const uint32_t rows = db.CountRows();
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

WALL_CLOCK_BENCH(LibrarySetLog, sqlite, kSqlite);
WALL_CLOCK_BENCH(BareOdbcSetLog, sqlite, kSqlite);
WALL_CLOCK_BENCH(LibrarySetLog, postgres, kPostgres);
WALL_CLOCK_BENCH(BareOdbcSetLog, postgres, kPostgres);
WALL_CLOCK_BENCH(LibrarySetLog, sqlite_kind3_100k, kSqliteBatch, kBatchRecords);
WALL_CLOCK_BENCH(SqliteApiSetLog, sqlite_100k, kSqlite, kBatchRecords);
WALL_CLOCK_BENCH(LibraryGetLogByTime, sqlite, kSqlite)->Iterations(5);
WALL_CLOCK_BENCH(BareOdbcGetLogByTime, sqlite, kSqlite)->Iterations(5);
WALL_CLOCK_BENCH(LibraryGetLogByTime, postgres, kPostgres)->Iterations(5);
WALL_CLOCK_BENCH(BareOdbcGetLogByTime, postgres, kPostgres)->Iterations(5);

}  // namespace

int main(int argc, char** argv) { return bench::RunThenDropTables(argc, argv); }
