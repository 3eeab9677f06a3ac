// A cheap export (sgGetRecordCount on 100 rows) with a new connection per call
// and with pooling ("...;pool"), on every database.
#include <string>
#include <vector>

#include "bench_support.h"

namespace {

using bench::Target;

constexpr uint32_t kRows = 100;

// A 100-row data table on the target, made once per run.
const DataTableInfo* HundredRows(const Target& target) {
  static std::vector<unsigned char> bytes;
  bytes = bench::DataTableBytes(bench::TableName("pool", "count"));
  auto* table = reinterpret_cast<DataTableInfo*>(bytes.data());
  if (!bench::ToCreate(target, table->name)) return table;
  if (sgEnsureTableExist(bench::Token(), table, nullptr, 0) != 0) return nullptr;
  std::vector<unsigned char> record(bench::kDataRecordSize);
  for (uint32_t row = 0; row < kRows; ++row)
    if (sgSetRecord(bench::Token(), table, reinterpret_cast<DataRecord*>(record.data()),
                    bench::kDataRecordSize) != 0)
      return nullptr;
  return table;
}

void CheapCall(benchmark::State& state, const Target& target, const char* options) {
  if (!bench::UseOrSkip(state, target)) return;
  const DataTableInfo* table = HundredRows(target);
  if (table == nullptr || !bench::UseOrSkip(state, target, options)) {
    state.SkipWithError(dbGetLastError());
    return;
  }
  for (auto _ : state)
    if (sgGetRecordCount(bench::Token(), table) != kRows) {
      state.SkipWithError(dbGetLastError());
      return;
    }
  state.counters["calls/s"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                 benchmark::Counter::kIsRate);
}

#define CHEAP_CALL(name, target, options) \
  BENCHMARK_CAPTURE(CheapCall, name, target, options)->UseRealTime()->MinTime(2.0)

CHEAP_CALL(sqlite_unpooled, bench::kSqlite, "");
CHEAP_CALL(sqlite_pooled, bench::kSqlite, ";pool");
CHEAP_CALL(postgres_unpooled, bench::kPostgres, "");
CHEAP_CALL(postgres_pooled, bench::kPostgres, ";pool");
CHEAP_CALL(mariadb_unpooled, bench::kMariadb, "");
CHEAP_CALL(mariadb_pooled, bench::kMariadb, ";pool");

}  // namespace

int main(int argc, char** argv) { return bench::RunThenDropTables(argc, argv); }
