// One export call cycle (connect, one-row select, read, disconnect) through
// DbConnection, beside bare ODBC making exactly the same calls.
#include <string>

#include "bench_support.h"
#include "core/connection.h"
#include "core/settings.h"

namespace {

using bench::BareConnection;
using bench::kPostgres;
using bench::kSqlite;
using bench::Login;
using bench::Target;
using scadastore::ConnectionSettings;
using scadastore::DbConnection;

bool Configure(benchmark::State& state, const Target& target) {
  const std::string config = bench::ConfigText(target);
  if (config.empty() || !scadastore::ParseSettings(config.c_str(), scadastore::Settings())) {
    state.SkipWithError((std::string(target.envVar) + " is not set").c_str());
    return false;
  }
  return true;
}

void LibraryCycle(benchmark::State& state, const Target& target) {
  if (!Configure(state, target)) return;
  for (auto _ : state) {
    DbConnection db;
    if (!db.Open() || !db.OpenQuery("select 1")) {
      state.SkipWithError(db.ErrorText());
      return;
    }
    uint32_t value = 0;
    db.MoveToFirstRow();
    db.GetInteger(1, &value, 4);
    db.Close();
    benchmark::DoNotOptimize(value);
  }
}

void BareOdbcCycle(benchmark::State& state, const Target& target) {
  if (!Configure(state, target)) return;
  const ConnectionSettings& s = scadastore::Settings();
  const Login login{s.dsn, s.user, s.password};
  const std::string select = "select 1";
  for (auto _ : state) {
    BareConnection db(login);
    if (!db.connected()) {
      state.SkipWithError("connect failed");
      return;
    }
    db.OpenCursor(select);
    db.Fetch(SQL_FETCH_FIRST);
    db.CountColumns();
    uint32_t value = 0;
    db.ReadInteger(1, &value);
    benchmark::DoNotOptimize(value);
  }
}

BENCHMARK_CAPTURE(LibraryCycle, sqlite, kSqlite)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcCycle, sqlite, kSqlite)->UseRealTime();
BENCHMARK_CAPTURE(LibraryCycle, postgres, kPostgres)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcCycle, postgres, kPostgres)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
