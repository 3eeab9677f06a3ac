// almSetAlarm of 1,000 records and almGetAlarmByQuery of a one-hour range
// over 100,000 alarms, each beside bare ODBC making the same statements,
// fetches and column reads; and almSetAlarm of 100,000 records on SQLite
// beside the SQLite C API.
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
constexpr uint32_t kReadRows = 100000;
constexpr uint32_t kRecordSize = sizeof(AlarmRecord);
constexpr uint32_t kFirstTime = 1700000000;  // one alarm per second from here
constexpr uint32_t kHourStart = kFirstTime + 50000;
constexpr uint32_t kHourRows = 3601;  // both bounds are inclusive

using namespace bench;

std::string TableName(const char* role) { return bench::TableName("alm", role); }

// Points the library at the target and makes sure `table` exists.
bool Prepare(benchmark::State& state, const Target& target, const std::string& table) {
  if (!UseOrSkip(state, target)) return false;
  if (ToCreate(target, table)) almEnsureTableExist(Token(), table.c_str());
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
  return "insert into " + Quote(target, table) + " (" +
         ColumnList(target, {"id", "station", "tag", "tagtype", "alarmtype", "value", "status",
                             "recovertime", "arisetime", "ip", "description", "millisecond",
                             "batch", "alarmlevel"}) +
         ") ";
}

void LibrarySetAlarm(benchmark::State& state, const Target& target,
                     uint32_t count = kWriteRecords) {
  const std::string table = TableName("write_lib");
  if (!Prepare(state, target, table)) return;
  Empty(target, table);
  const std::vector<AlarmRecord> records = Records(count);
  for (auto _ : state) {
    if (almSetAlarm(Token(), table.c_str(), records.data(), count * kRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    state.PauseTiming();
    Empty(target, table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * count);
}

// The same records through the SQLite C API's prepared insert, values bound.
void SqliteApiSetAlarm(benchmark::State& state, const Target& target, uint32_t count) {
  const std::string table = TableName("write_c");
  if (!Prepare(state, target, table)) return;
  Empty(target, table);
  const std::vector<AlarmRecord> records = Records(count);
  const std::string insert = InsertHead(target, table) + "values (?,?,?,?,?,?,?,?,?,?,?,?,?,?)";
  for (auto _ : state) {
    const bool ok = SqliteApiInsert(
        target, table, insert, count, [&](sqlite3_stmt* statement, uint32_t i, int64_t id) {
          const AlarmRecord& r = records[i];
          sqlite3_bind_int64(statement, 1, id);
          sqlite3_bind_text(statement, 2, r.station, -1, SQLITE_STATIC);
          sqlite3_bind_text(statement, 3, r.tag, -1, SQLITE_STATIC);
          sqlite3_bind_int64(statement, 4, r.tagtype);
          sqlite3_bind_int64(statement, 5, r.alarmtype);
          sqlite3_bind_double(statement, 6, r.value);
          sqlite3_bind_int64(statement, 7, r.status);
          sqlite3_bind_int64(statement, 8, r.recovertime);
          sqlite3_bind_int64(statement, 9, r.arisetime);
          sqlite3_bind_int64(statement, 10, r.ip);
          sqlite3_bind_text(statement, 11, r.description, -1, SQLITE_STATIC);
          sqlite3_bind_int64(statement, 12, r.millisecond);
          sqlite3_bind_text(statement, 13, r.batch, -1, SQLITE_STATIC);
          sqlite3_bind_int64(statement, 14, r.alarmlevel);
        });
    if (!ok) {
      state.SkipWithError("SQLite C API insert failed");
      return;
    }
    state.PauseTiming();
    Empty(target, table);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BareOdbcSetAlarm(benchmark::State& state, const Target& target) {
  const std::string table = TableName("write_odbc");
  if (!Prepare(state, target, table)) return;
  Empty(target, table);
  const std::vector<AlarmRecord> records = Records(kWriteRecords);
  const std::string maxId = MaxIdSelect(target, table);
  const std::string head = InsertHead(target, table);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(maxId)) {
      state.SkipWithError("bare connection or max(id) failed");
      return;
    }
    db.CountColumns();
    db.Fetch(SQL_FETCH_FIRST);
    uint32_t id = 0;
    db.ReadInteger(1, &id);
    for (const AlarmRecord& r : records) {
      if (!db.Execute(head + InsertValues(r, ++id))) {
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
  BareConnection db(target);
  if (!InsertRows(db, InsertHead(target, table) + "values ", kReadRows, 1000,
                  [&](uint32_t i) { return InsertValues(records[i], i + 1).substr(6); })) {
    state.SkipWithError("filling the read table failed");
    return {};
  }
  return table;
}

void LibraryQueryHour(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  const AlarmQuery query{kHourStart, kHourStart + 3600, 0, 0, 0, 0, 0, 0};
  TimeBlockReads<AlarmRecord>(state, kHourRows, kRecordSize, [&](auto* block, auto* size) {
    return almGetAlarmByQuery(Token(), table.c_str(), &query, block, size);
  });
}

void BareOdbcQueryHour(benchmark::State& state, const Target& target) {
  const std::string table = ReadTable(state, target);
  if (table.empty()) return;
  const std::string select =
      RangeSelect(target, table, "arisetime", kHourStart, kHourStart + 3600);
  for (auto _ : state) {
    BareConnection db(target);
    if (!db.connected() || !db.OpenCursor(select)) {
      state.SkipWithError("bare select failed");
      return;
    }
    db.CountColumns();
    const uint32_t rows = db.CountRows();
    auto* block = static_cast<AlarmRecord*>(std::calloc(rows, kRecordSize));
    db.Fetch(SQL_FETCH_FIRST);
    for (uint32_t k = 0; k < rows; ++k) {
      AlarmRecord& r = block[k];
      auto* bytes = reinterpret_cast<unsigned char*>(&r);
      db.ReadInteger(1, bytes + offsetof(AlarmRecord, id));
      db.ReadText(2, r.station, sizeof r.station);
      db.ReadText(3, r.tag, sizeof r.tag);
      db.ReadInteger(4, bytes + offsetof(AlarmRecord, tagtype));
      db.ReadInteger(5, bytes + offsetof(AlarmRecord, alarmtype));
      db.ReadDouble(6, bytes + offsetof(AlarmRecord, value));
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

WALL_CLOCK_BENCH(LibrarySetAlarm, sqlite, kSqlite);
WALL_CLOCK_BENCH(BareOdbcSetAlarm, sqlite, kSqlite);
WALL_CLOCK_BENCH(LibrarySetAlarm, postgres, kPostgres);
WALL_CLOCK_BENCH(BareOdbcSetAlarm, postgres, kPostgres);
WALL_CLOCK_BENCH(LibrarySetAlarm, sqlite_kind3_100k, kSqliteBatch, kBatchRecords);
WALL_CLOCK_BENCH(SqliteApiSetAlarm, sqlite_100k, kSqlite, kBatchRecords);
WALL_CLOCK_BENCH(LibraryQueryHour, sqlite, kSqlite);
WALL_CLOCK_BENCH(BareOdbcQueryHour, sqlite, kSqlite);
WALL_CLOCK_BENCH(LibraryQueryHour, postgres, kPostgres);
WALL_CLOCK_BENCH(BareOdbcQueryHour, postgres, kPostgres);

}  // namespace

int main(int argc, char** argv) { return bench::RunThenDropTables(argc, argv); }
