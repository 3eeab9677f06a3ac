// The index on time that new tables get, beside the same table without it,
// at 100,000 and 1,000,000 rows one second apart:
//   sgGetRecord_Day (24 hourly statistics over 8 float columns),
//   one hour of alarms (almGetAlarmByQuery) and of log entries (logGetLogByTime),
//   the first record of a minute (sgGetRecordByTime).
// Each table is made by the library and filled by the database itself in one
// statement (generate_series, a recursive CTE, MariaDB's sequence tables),
// then analysed; the table "without" has its time index dropped first.
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bench_support.h"
#include "core/time_index.h"

namespace {

using namespace bench;

std::string AnalyzeStatement(const Target& target, const std::string& table) {
  return (target.kind == kMariadb.kind ? "analyze table " : "analyze ") + Quote(target, table);
}

std::string DropTimeIndexStatement(const Target& target, const std::string& table) {
  std::string sql = "drop index " + Quote(target, scadastore::TimeIndexName(table));
  return target.kind == kMariadb.kind ? sql + " on " + Quote(target, table) : sql;
}

struct Table {
  std::string name;
  std::vector<unsigned char> info;  // a data table's DataTableInfo
  const DataTableInfo* Info() const { return reinterpret_cast<const DataTableInfo*>(info.data()); }
};

bool Create(Family family, const Table& table) {
  switch (family) {
    case Family::Data: return sgEnsureTableExist(Token(), table.Info(), nullptr, 0) == 0;
    case Family::Alarm: return almEnsureTableExist(Token(), table.name.c_str()) == 0;
    case Family::Log: return logEnsureTableExist(Token(), table.name.c_str()) == 0;
  }
  return false;
}

// Points the library at the target and hands out the table of this family,
// size and index, made and filled on first use.
const Table* Prepare(benchmark::State& state, const Target& target, Family family, uint32_t rows,
                     bool indexed) {
  if (!UseOrSkip(state, target)) return nullptr;
  static const char* const kFamilies[] = {"data", "alarm", "log"};
  const std::string role = std::string(kFamilies[static_cast<int>(family)]) + "_" +
                           std::to_string(rows) + (indexed ? "_index" : "_bare");
  const std::string name = TableName("tidx", role.c_str());
  static std::map<std::string, Table> tables;
  const std::string key = std::string(target.envVar) + name;
  if (auto found = tables.find(key); found != tables.end()) return &found->second;

  Table table{name, DataTableBytes(name)};
  BareConnection db(target);
  const bool ready = ToCreate(target, name) && Create(family, table) && db.connected() &&
                     (indexed || db.Execute(DropTimeIndexStatement(target, name))) &&
                     db.Execute(FillStatement(target, family, name, rows)) &&
                     db.Execute(AnalyzeStatement(target, name));
  if (!ready) {
    state.SkipWithError(("preparing " + name + " failed").c_str());
    return nullptr;
  }
  return &tables.emplace(key, std::move(table)).first->second;
}

void Day(benchmark::State& state, const Target& target, uint32_t rows, bool indexed) {
  const Table* table = Prepare(state, target, Family::Data, rows, indexed);
  if (!table) return;
  std::vector<unsigned char> slots(24 * kDataRecordSize);
  for (auto _ : state) {
    if (sgGetRecord_Day(Token(), table->Info(), 0, kStart, 0, 0, 0, slots.data(),
                        static_cast<uint32_t>(slots.size())) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
}

// One hour from the middle of the table: 3,600 rows.
constexpr uint32_t kHourRows = 3600;
uint32_t MiddleOf(uint32_t rows) { return kStart + rows / 2; }

void AlarmHour(benchmark::State& state, const Target& target, uint32_t rows, bool indexed) {
  const Table* table = Prepare(state, target, Family::Alarm, rows, indexed);
  if (!table) return;
  const AlarmQuery query{MiddleOf(rows), MiddleOf(rows) + kHourRows - 1, 0, 0, 0, 0, 0, 0};
  TimeBlockReads<AlarmRecord>(state, kHourRows, sizeof(AlarmRecord),
                              [&](AlarmRecord** block, uint32_t* size) {
                                return almGetAlarmByQuery(Token(), table->name.c_str(), &query,
                                                          block, size);
                              });
}

void LogHour(benchmark::State& state, const Target& target, uint32_t rows, bool indexed) {
  const Table* table = Prepare(state, target, Family::Log, rows, indexed);
  if (!table) return;
  TimeBlockReads<LogRecord>(state, kHourRows, sizeof(LogRecord),
                            [&](LogRecord** block, uint32_t* size) {
                              return logGetLogByTime(Token(), table->name.c_str(), MiddleOf(rows),
                                                     MiddleOf(rows) + kHourRows - 1, block, size);
                            });
}

void Minute(benchmark::State& state, const Target& target, uint32_t rows, bool indexed) {
  const Table* table = Prepare(state, target, Family::Data, rows, indexed);
  if (!table) return;
  std::vector<unsigned char> record(kDataRecordSize);
  for (auto _ : state) {
    if (sgGetRecordByTime(Token(), table->Info(), MiddleOf(rows),
                          reinterpret_cast<DataRecord*>(record.data()), kDataRecordSize) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
}

// Each measure on one database and size, without the index, then with it.
#define TIME_INDEX_BENCH(function, iterations, database, target, rows)                      \
  WALL_CLOCK_BENCH(function, database##_##rows##_without, target, rows, false)               \
      ->Iterations(iterations);                                                              \
  WALL_CLOCK_BENCH(function, database##_##rows##_index, target, rows, true)->Iterations(iterations)
#define TIME_INDEX_BENCHES(database, target, rows)      \
  TIME_INDEX_BENCH(Day, 3, database, target, rows);       \
  TIME_INDEX_BENCH(AlarmHour, 5, database, target, rows); \
  TIME_INDEX_BENCH(LogHour, 5, database, target, rows);   \
  TIME_INDEX_BENCH(Minute, 10, database, target, rows)

TIME_INDEX_BENCHES(sqlite, kSqlite, 100000);
TIME_INDEX_BENCHES(sqlite, kSqlite, 1000000);
TIME_INDEX_BENCHES(postgres, kPostgres, 100000);
TIME_INDEX_BENCHES(postgres, kPostgres, 1000000);
TIME_INDEX_BENCHES(mariadb, kMariadb, 100000);
TIME_INDEX_BENCHES(mariadb, kMariadb, 1000000);

}  // namespace

int main(int argc, char** argv) { return RunThenDropTables(argc, argv); }
