// Interval statistics and free selects over large data tables, each beside
// bare ODBC making the same statements, fetches and column reads:
//   sgGetRecord_Day over a day of 1-second samples (86,400 rows),
//   sgGetRecord_Year over a year of 1-minute samples (525,600 rows),
//   sgGetRecordBySQL of 100,000 of those rows,
// on tables as the library makes them, with their index on `time`
// (time_index_bench sets that index against its absence).
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "bench_support.h"

namespace {

constexpr uint32_t kYearStart = 1672531200;  // 2023-01-01 00:00:00 UTC, a common year
constexpr uint32_t kDayRows = 86400;         // one a second
constexpr uint32_t kYearRows = 525600;       // one a minute
constexpr uint32_t kSqlRows = 100000;

using namespace bench;

// One data table of 8 float columns, `rows` samples `step` seconds apart.
struct SampleTable {
  std::string name;
  uint32_t rows, step;
  std::vector<unsigned char> info;  // its DataTableInfo

  const DataTableInfo* Info() const { return reinterpret_cast<const DataTableInfo*>(info.data()); }
};

SampleTable MakeSampleTable(const char* role, uint32_t rows, uint32_t step) {
  const std::string name = TableName("stat", role);
  SampleTable table{name, rows, step, DataTableBytes(name)};
  reinterpret_cast<DataTableInfo*>(table.info.data())->statMode = 0;  // average
  return table;
}

SampleTable day_table = MakeSampleTable("day", kDayRows, 1);
SampleTable year_table = MakeSampleTable("year", kYearRows, 60);

// Row i: its values vary with the sample so that no aggregate is trivial.
std::string RowValues(const SampleTable& table, uint32_t i) {
  char row[256];
  int length = std::snprintf(row, sizeof row, "%u, %u, 0, 0", i + 1, kYearStart + i * table.step);
  for (int c = 1; c <= kValueColumns; ++c)
    length += std::snprintf(row + length, sizeof row - length, ", %.2f", (i % 997) * 0.25 + c);
  return row;
}

bool LoadSqlite(const Target& target, const SampleTable& table) {
  const std::string insert =
      "insert into " + Quote(target, table.name) + " values (?, ?, 0, 0, ?, ?, ?, ?, ?, ?, ?, ?)";
  return SqliteApiInsert(target, table.name, insert, table.rows,
                         [&](sqlite3_stmt* statement, uint32_t i, int64_t id) {
                           sqlite3_bind_int64(statement, 1, id);
                           sqlite3_bind_int64(statement, 2, kYearStart + i * table.step);
                           for (int c = 1; c <= kValueColumns; ++c)
                             sqlite3_bind_double(statement, c + 2, (i % 997) * 0.25 + c);
                         });
}

bool LoadWithMultiRowInserts(const Target& target, const SampleTable& table) {
  BareConnection db(target);
  return db.connected() &&
         InsertRows(db, "insert into " + Quote(target, table.name) + " values ", table.rows, 10000,
                    [&](uint32_t i) { return "(" + RowValues(table, i) + ")"; });
}

// Points the library at the target, creates the table and fills it once per process.
bool Prepare(benchmark::State& state, const Target& target, const SampleTable& table) {
  if (!UseOrSkip(state, target)) return false;
  if (ToCreate(target, table.name)) {
    sgEnsureTableExist(Token(), table.Info(), nullptr, 0);
    const bool loaded =
        &target == &kSqlite ? LoadSqlite(target, table) : LoadWithMultiRowInserts(target, table);
    if (!loaded) {
      state.SkipWithError("loading the samples failed");
      return false;
    }
  }
  return true;
}

std::string StatStatement(const Target& target, const SampleTable& table, uint32_t start,
                          uint32_t end) {
  std::string sql = "select";
  for (int c = 1; c <= kValueColumns; ++c)
    sql += std::string(c > 1 ? "," : "") + " avg(" + Quote(target, "v" + std::to_string(c)) + ")";
  const std::string time = Quote(target, "time");
  return sql + " from " + Quote(target, table.name) + " where (" + time + ">=" +
         std::to_string(static_cast<int32_t>(start)) + ") and (" + time + "<" +
         std::to_string(static_cast<int32_t>(end)) + ")";
}

// The slots' intervals as the calendar exports step them.
std::vector<uint32_t> DayBounds() {
  std::vector<uint32_t> bounds;
  for (uint32_t h = 0; h <= 24; ++h) bounds.push_back(kYearStart + 3600 * h);
  return bounds;
}
std::vector<uint32_t> YearBounds() {
  const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::vector<uint32_t> bounds{kYearStart};
  for (int m : days) bounds.push_back(bounds.back() + 86400 * m);
  return bounds;
}

void LibraryDay(benchmark::State& state, const Target& target) {
  if (!Prepare(state, target, day_table)) return;
  std::vector<unsigned char> slots(24 * kDataRecordSize);
  for (auto _ : state) {
    if (sgGetRecord_Day(Token(), day_table.Info(), 0, kYearStart, 0, 0, 0, slots.data(),
                        slots.size()) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * 24);
}

void LibraryYear(benchmark::State& state, const Target& target) {
  if (!Prepare(state, target, year_table)) return;
  std::vector<unsigned char> slots(12 * kDataRecordSize);
  for (auto _ : state) {
    if (sgGetRecord_Year(Token(), year_table.Info(), 0, kYearStart, 2023, slots.data(),
                         slots.size()) != 0) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  }
  state.SetItemsProcessed(state.iterations() * 12);
}

// One connection, one aggregate select and one row per slot.
void BareOdbcSlots(benchmark::State& state, const Target& target, const SampleTable& table,
                   const std::vector<uint32_t>& bounds) {
  if (!Prepare(state, target, table)) return;
  const size_t slotCount = bounds.size() - 1;
  std::vector<std::string> statements;
  for (size_t k = 0; k < slotCount; ++k)
    statements.push_back(StatStatement(target, table, bounds[k], bounds[k + 1]));
  std::vector<unsigned char> slots(slotCount * kDataRecordSize);
  for (auto _ : state) {
    BareConnection db(target);
    for (size_t k = 0; k < slotCount; ++k) {
      unsigned char* slot = slots.data() + k * kDataRecordSize;
      std::memset(slot, 0, 16);
      std::memcpy(slot + 4, &bounds[k], 4);
      if (!db.OpenCursor(statements[k])) {
        state.SkipWithError("bare select failed");
        return;
      }
      db.CountColumns();
      db.Fetch(SQL_FETCH_FIRST);
      for (int c = 1; c <= kValueColumns; ++c) db.ReadDouble(c, slot + 16 + 8 * (c - 1));
    }
  }
  state.SetItemsProcessed(state.iterations() * slotCount);
}

void BareOdbcDay(benchmark::State& state, const Target& target) {
  BareOdbcSlots(state, target, day_table, DayBounds());
}

void BareOdbcYear(benchmark::State& state, const Target& target) {
  BareOdbcSlots(state, target, year_table, YearBounds());
}

std::string SqlSelect(const Target& target) {
  return "select * from " + Quote(target, year_table.name) + " where " + Quote(target, "time") +
         " < " + std::to_string(kYearStart + kSqlRows * year_table.step);
}

void LibraryBySql(benchmark::State& state, const Target& target) {
  if (!Prepare(state, target, year_table)) return;
  const std::string sql = SqlSelect(target);
  for (auto _ : state) {
    uint32_t rows = 0, fields = 0, length = 0;
    uint32_t* offsets = nullptr;
    char* text = nullptr;
    if (sgGetRecordBySQL(Token(), "-", sql.c_str(), nullptr, &rows, &fields, &offsets, &text,
                         &length) != 0 ||
        rows != kSqlRows) {
      state.SkipWithError(dbGetLastError());
      return;
    }
    std::free(offsets);
    std::free(text);
  }
  state.SetItemsProcessed(state.iterations() * kSqlRows);
}

// Same statement, row count, column names and cell reads into a text block
// of 512 bytes a row (doubling when full), the time column as a date.
void BareOdbcBySql(benchmark::State& state, const Target& target) {
  if (!Prepare(state, target, year_table)) return;
  const std::string sql = SqlSelect(target);
  for (auto _ : state) {
    BareConnection db(target);
    const int columns = db.OpenCursor(sql) ? db.CountColumns() : -1;
    const uint32_t rows = db.CountRows();
    if (columns <= 0 || rows != kSqlRows) {
      state.SkipWithError("bare select failed");
      return;
    }
    auto* offsets = static_cast<uint32_t*>(std::calloc((rows + 1) * columns, 4));
    size_t capacity = (rows + 1) * 512, used = 0, entry = 0;
    auto* text = static_cast<char*>(std::calloc(capacity, 1));
    auto append = [&](const char* cell) {
      size_t length = std::strlen(cell);
      if (capacity - used <= length) {
        char* grown = static_cast<char*>(std::calloc(capacity * 2, 1));
        std::memcpy(grown, text, used);
        std::free(text);
        text = grown;
        capacity *= 2;
      }
      std::memcpy(text + used, cell, length);
      offsets[entry++] = static_cast<uint32_t>(used);
      used += length + 1;
    };
    std::vector<int> kinds(columns + 1);  // 0 skipped, 1 time, 2 text
    char cell[256];
    for (int c = 1; c <= columns; ++c) {
      std::memset(cell, 0, sizeof cell);
      db.ColumnName(c, cell);
      std::string name = cell;
      kinds[c] = name == "id" || name == "ms" || name == "modify" ? 0 : name == "time" ? 1 : 2;
      if (kinds[c]) append(cell);
    }
    db.Fetch(SQL_FETCH_FIRST);
    for (uint32_t r = 0; r < rows; ++r, db.Fetch(SQL_FETCH_NEXT)) {
      for (int c = 1; c <= columns; ++c) {
        if (!kinds[c]) continue;
        std::memset(cell, 0, sizeof cell);
        if (kinds[c] == 1) {
          uint32_t seconds = 0;
          db.ReadInteger(c, &seconds);
          std::time_t t = seconds;
          std::tm local{};
          localtime_r(&t, &local);
          std::snprintf(cell, sizeof cell, "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
                        local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
        } else {
          db.ReadText(c, cell, sizeof cell);
        }
        append(cell);
      }
    }
    std::free(offsets);
    std::free(text);
  }
  state.SetItemsProcessed(state.iterations() * kSqlRows);
}

#define STAT_BENCH(function, iterations)                                    \
  WALL_CLOCK_BENCH(function, sqlite, kSqlite)->Iterations(iterations);      \
  WALL_CLOCK_BENCH(function, postgres, kPostgres)->Iterations(iterations);  \
  WALL_CLOCK_BENCH(function, mariadb, kMariadb)->Iterations(iterations)

STAT_BENCH(LibraryDay, 10);
STAT_BENCH(BareOdbcDay, 10);
STAT_BENCH(LibraryYear, 5);
STAT_BENCH(BareOdbcYear, 5);
STAT_BENCH(LibraryBySql, 3);
STAT_BENCH(BareOdbcBySql, 3);

}  // namespace

int main(int argc, char** argv) { return bench::RunThenDropTables(argc, argv); }
