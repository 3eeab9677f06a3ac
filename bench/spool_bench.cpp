// Store and forward (option spool=DIR) on the server databases, records of 8
// float columns:
//   a pooled sgSetRecord with the option off and on, the database healthy;
//   keeping: sgSetRecord while the data source reaches nothing (a closed
//   port), each write flushed to the spool's journal;
//   forwarding: rows per second from the spool into the database, of kept
//   samples alone and of a host's mix (an alarm, a log entry and a sample in
//   turn), beside the normal batch write of the same rows: sgBatchSetRecord of
//   1,000 records, and for the mix a third each through the three families.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "bench_support.h"
#include "core/spool.h"

namespace {

using namespace bench;

constexpr uint32_t kKept = 20000;

std::string SpoolDirectory() { return "/tmp/scadastore-bench-spool-" + std::to_string(getpid()); }

// A table of the run, made once per target.
std::vector<unsigned char> Table(const Target& target, const char* role) {
  std::vector<unsigned char> bytes = DataTableBytes(bench::TableName("spool", role));
  auto* table = reinterpret_cast<DataTableInfo*>(bytes.data());
  if (ToCreate(target, table->name)) sgEnsureTableExist(Token(), table, nullptr, 0);
  return bytes;
}

uint32_t WriteOne(const std::vector<unsigned char>& table, std::vector<unsigned char>& record) {
  return sgSetRecord(Token(), reinterpret_cast<const DataTableInfo*>(table.data()),
                     reinterpret_cast<DataRecord*>(record.data()), kDataRecordSize);
}

void PooledWrite(benchmark::State& state, const Target& target, bool spool) {
  if (!UseOrSkip(state, target)) return;
  const std::vector<unsigned char> table = Table(target, spool ? "write_on" : "write_off");
  if (!UseOrSkip(state, target, ";pool" + (spool ? ";spool=" + SpoolDirectory() : ""))) return;
  std::vector<unsigned char> record(kDataRecordSize);
  for (auto _ : state)
    if (WriteOne(table, record) != 0) return state.SkipWithError(dbGetLastError());
  state.counters["writes/s"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
}

// The same login on a port where nothing listens.
std::string Unreachable(const Target& target) {
  const Login login = LoginOf(target);
  return std::string(target.kind == 2 ? "scadastore_maria_blackhole" : "scadastore_blackhole") +
         ";" + login.user + ";" + login.password + ";" + std::to_string(target.kind) +
         ";pool;login=1;spool=" + SpoolDirectory();
}

// Keeps `count` writes: samples, or in turn an alarm, a log entry and a sample.
bool Keep(const Target& target, const std::vector<unsigned char>& table, uint32_t count,
          const std::string& alarms, const std::string& logs) {
  dbInitialize(Unreachable(target).c_str());
  std::vector<unsigned char> record(kDataRecordSize);
  AlarmRecord alarm{};
  std::strcpy(alarm.station, "north");
  LogRecord entry{};
  std::strcpy(entry.source, "console");
  for (uint32_t k = 0; k < count; ++k) {
    const int turn = alarms.empty() ? 2 : k % 3;
    const uint32_t result =
        turn == 0   ? almSetAlarm(Token(), alarms.c_str(), &alarm, sizeof alarm)
        : turn == 1 ? logSetLog(Token(), logs.c_str(), &entry, sizeof entry)
                    : WriteOne(table, record);
    if (result != 0) return false;
  }
  return true;
}

void Keeping(benchmark::State& state, const Target& target) {
  if (!UseOrSkip(state, target)) return;
  const std::vector<unsigned char> table = Table(target, "keep");
  dbInitialize(Unreachable(target).c_str());
  std::vector<unsigned char> record(kDataRecordSize);
  for (auto _ : state)
    if (WriteOne(table, record) != 0) return state.SkipWithError(dbGetLastError());
  state.counters["writes/s"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                  benchmark::Counter::kIsRate);
  std::filesystem::remove_all(SpoolDirectory());  // not forwarded
}

void Forwarding(benchmark::State& state, const Target& target, bool mixed) {
  if (!UseOrSkip(state, target)) return;
  const std::vector<unsigned char> table = Table(target, "forward");
  std::string alarms, logs;
  if (mixed) {
    alarms = bench::TableName("spool", "alarms");
    logs = bench::TableName("spool", "logs");
    if (ToCreate(target, alarms)) almEnsureTableExist(Token(), alarms.c_str());
    if (ToCreate(target, logs)) logEnsureTableExist(Token(), logs.c_str());
  }
  for (auto _ : state) {
    state.PauseTiming();
    if (!Keep(target, table, kKept, alarms, logs) ||
        !Use(target, ";pool;spool=" + SpoolDirectory()))
      return state.SkipWithError(dbGetLastError());
    // The pause after the failed attempts while keeping is not forwarding time.
    std::this_thread::sleep_for(scadastore::kRetryPause);
    state.ResumeTiming();
    while (scadastore::ActiveSpool()->Holds()) almGetAlarmCount(Token(), "scadastore_spool");
  }
  state.counters["rows/s"] = benchmark::Counter(static_cast<double>(state.iterations() * kKept),
                                                benchmark::Counter::kIsRate);
}

// 1,000 rows a call: sgBatchSetRecord of samples, or the same rows as the mix
// keeps them, a third each through almSetAlarm and logSetLog, the rest samples.
void BatchWrite(benchmark::State& state, const Target& target, bool mixed) {
  if (!UseOrSkip(state, target)) return;
  const std::vector<unsigned char> table = Table(target, mixed ? "batch_mix" : "batch");
  const std::string alarms = bench::TableName("spool", "batch_alarms");
  const std::string logs = bench::TableName("spool", "batch_logs");
  if (mixed && ToCreate(target, alarms)) almEnsureTableExist(Token(), alarms.c_str());
  if (mixed && ToCreate(target, logs)) logEnsureTableExist(Token(), logs.c_str());
  if (!UseOrSkip(state, target, ";pool")) return;
  const uint32_t third = mixed ? 333 : 0;
  std::vector<unsigned char> records(size_t{kDataRecordSize} * (1000 - 2 * third));
  std::vector<AlarmRecord> alarmRows(third);
  std::vector<LogRecord> logRows(third);
  for (AlarmRecord& alarm : alarmRows) std::strcpy(alarm.station, "north");
  for (LogRecord& entry : logRows) std::strcpy(entry.source, "console");
  for (auto _ : state) {
    const bool written =
        (!mixed ||
         (almSetAlarm(Token(), alarms.c_str(), alarmRows.data(),
                      third * sizeof(AlarmRecord)) == 0 &&
          logSetLog(Token(), logs.c_str(), logRows.data(), third * sizeof(LogRecord)) == 0)) &&
        sgBatchSetRecord(Token(), reinterpret_cast<const DataTableInfo*>(table.data()),
                         records.data(), static_cast<uint32_t>(records.size())) == 0;
    if (!written) return state.SkipWithError(dbGetLastError());
  }
  state.counters["rows/s"] = benchmark::Counter(static_cast<double>(state.iterations() * 1000),
                                                benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(PooledWrite, postgres_off, kPostgres, false)->UseRealTime()->MinTime(0.5);
BENCHMARK_CAPTURE(PooledWrite, postgres_on, kPostgres, true)->UseRealTime()->MinTime(0.5);
BENCHMARK_CAPTURE(Keeping, postgres, kPostgres)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(Forwarding, postgres_samples, kPostgres, false)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(Forwarding, postgres_mix, kPostgres, true)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BatchWrite, postgres, kPostgres, false)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BatchWrite, postgres_mix, kPostgres, true)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(PooledWrite, mariadb_off, kMariadb, false)->UseRealTime()->MinTime(0.5);
BENCHMARK_CAPTURE(PooledWrite, mariadb_on, kMariadb, true)->UseRealTime()->MinTime(0.5);
BENCHMARK_CAPTURE(Keeping, mariadb, kMariadb)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(Forwarding, mariadb_samples, kMariadb, false)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(Forwarding, mariadb_mix, kMariadb, true)->UseRealTime()->Iterations(3);
BENCHMARK_CAPTURE(BatchWrite, mariadb, kMariadb, false)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BatchWrite, mariadb_mix, kMariadb, true)->UseRealTime()->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
  const int status = RunThenDropTables(argc, argv);
  std::filesystem::remove_all(SpoolDirectory());
  return status;
}
