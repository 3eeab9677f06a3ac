// The tool's peak memory when it imports and exports many rows, beside its
// peak for `records count` on the same table (what it needs whatever the
// rows). Streaming shows as peaks that stay near that baseline from 50,000
// to 1,000,000 rows:
//   build/bench/tool_memory_bench --benchmark_counters_tabular=true
// SQLite through --sqlite (kind 3, in batches), PostgreSQL through
// SCADASTORE_TEST_POSTGRES (kind 5).
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>

#include "bench_support.h"

namespace {

using namespace bench;

struct Peak {
  int status;
  double megabytes, seconds;
};

// Runs the tool with `args`, its output and messages to /dev/null.
Peak RunTool(std::vector<std::string> args) {
  std::vector<char*> argv = {const_cast<char*>(SCADASTORE_TOOL)};
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
  auto started = std::chrono::steady_clock::now();
  pid_t pid = -1;
  int status = -1;
  rusage usage{};
  if (posix_spawn(&pid, SCADASTORE_TOOL, &files, nullptr, argv.data(), environ) == 0)
    wait4(pid, &status, 0, &usage);
  posix_spawn_file_actions_destroy(&files);
  return {status, usage.ru_maxrss / 1024.0,
          std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count()};
}

std::string TemporaryPath(const std::string& name) {
  return "/tmp/scadastore-tool-bench-" + std::to_string(getpid()) + "-" + name;
}

// A CSV of `rows` samples of a float, an int and a text column.
std::string SampleFile(int64_t rows) {
  std::string path = TemporaryPath(std::to_string(rows) + ".csv");
  if (std::filesystem::exists(path)) return path;
  std::ofstream csv(path);
  csv << "time,temp,pump,mode\n";
  for (int64_t i = 0; i < rows; ++i) csv << 1600000000 + i << ',' << i * 0.25 << ",1,auto\n";
  return path;
}

void ToolMemory(benchmark::State& state, bool postgres) {
  const int64_t rows = state.range(0);
  std::vector<std::string> database;
  std::string sqliteFile;
  if (postgres) {
    std::string config = ConfigText(kPostgres);
    if (config.empty()) {
      state.SkipWithError("SCADASTORE_TEST_POSTGRES is not set");
      return;
    }
    database = {"--config", config};
  } else {
    sqliteFile = TemporaryPath("plant.db");
    database = {"--sqlite", sqliteFile};
  }
  const std::string table = TableName("tool", "memory");
  const std::string csv = SampleFile(rows), exported = csv + ".out";
  auto tool = [&](std::vector<std::string> args) {
    args.insert(args.begin(), database.begin(), database.end());
    return RunTool(args);
  };
  for (auto _ : state) {
    tool({"drop", table});
    tool({"ensure", "data", table, "--columns", "temp,pump:int,mode:text"});
    Peak imported = tool({"records", "import", table, csv});
    Peak counted = tool({"records", "count", table});
    Peak exportedPeak = tool({"records", "export", table, "-o", exported});
    tool({"drop", table});
    if (imported.status != 0 || exportedPeak.status != 0) {
      state.SkipWithError("the tool failed");
      break;
    }
    state.counters["count_MB"] = counted.megabytes;
    state.counters["import_MB"] = imported.megabytes;
    state.counters["export_MB"] = exportedPeak.megabytes;
    state.counters["import_s"] = imported.seconds;
    state.counters["export_s"] = exportedPeak.seconds;
  }
  std::filesystem::remove(exported);
  if (!sqliteFile.empty()) std::filesystem::remove(sqliteFile);
}

}  // namespace

BENCHMARK_CAPTURE(ToolMemory, sqlite, false)->Arg(50000)->Arg(1000000)->Iterations(1)
    ->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK_CAPTURE(ToolMemory, postgres, true)->Arg(50000)->Arg(1000000)->Iterations(1)
    ->Unit(benchmark::kSecond)->UseRealTime();

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  for (const char* rows : {"50000", "1000000"}) std::filesystem::remove(TemporaryPath(rows + std::string(".csv")));
  return 0;
}
