// A long run of cheap calls (sgGetRecordCount on a 10-row table) on each
// database, printing the process's resident memory and open descriptors at
// the start, as it goes and at the end: they must stay flat.
//
//   long_run_bench [--calls N] [--pool] [sqlite|postgres|mariadb ...]
#include <dirent.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench_support.h"

namespace {

long ResidentKilobytes() {
  long pages = 0, resident = 0;
  if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(statm);
  }
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

int OpenDescriptors() {
  int count = -1;  // the directory's own descriptor
  if (DIR* fds = opendir("/proc/self/fd")) {
    while (const dirent* entry = readdir(fds))
      if (entry->d_name[0] != '.') ++count;
    closedir(fds);
  }
  return count;
}

void Report(const char* label, long calls, double seconds) {
  std::printf("  %-6s %10ld calls %9.0f calls/s  RSS %7ld KB  fds %d\n", label, calls,
              seconds > 0 ? calls / seconds : 0.0, ResidentKilobytes(), OpenDescriptors());
  std::fflush(stdout);
}

bool Run(const char* name, const bench::Target& target, long calls, const std::string& options) {
  std::printf("%s%s: %ld calls\n", name, options.c_str(), calls);
  if (!bench::Use(target)) {
    std::printf("  skipped: %s is not set or unreachable\n", target.envVar);
    return true;
  }
  std::vector<unsigned char> bytes = bench::DataTableBytes(bench::TableName("long", "run"));
  auto* table = reinterpret_cast<DataTableInfo*>(bytes.data());
  std::vector<unsigned char> record(bench::kDataRecordSize);
  bool ready = bench::ToCreate(target, table->name) &&
               sgEnsureTableExist(bench::Token(), table, nullptr, 0) == 0;
  for (int row = 0; ready && row < 10; ++row)
    ready = sgSetRecord(bench::Token(), table, reinterpret_cast<DataRecord*>(record.data()),
                        bench::kDataRecordSize) == 0;
  if (!ready || !bench::Use(target, options)) {
    std::printf("  setup failed: %s\n", dbGetLastError());
    return false;
  }
  const auto start = std::chrono::steady_clock::now();
  auto seconds = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  Report("start", 0, 0);
  const long step = calls >= 10 ? calls / 10 : 1;
  for (long call = 1; call <= calls; ++call) {
    if (sgGetRecordCount(bench::Token(), table) != 10) {
      std::printf("  call %ld failed: %s\n", call, dbGetLastError());
      return false;
    }
    if (call % step == 0) Report(call == calls ? "end" : "", call, seconds());
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  long calls = 1000000;
  std::string options;
  std::vector<std::string> names;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--calls" && i + 1 < argc) {
      calls = std::atol(argv[++i]);
    } else if (argument == "--pool") {
      options = ";pool";
    } else if (argument == "sqlite" || argument == "postgres" || argument == "mariadb") {
      names.push_back(argument);
    } else {
      std::printf("usage: %s [--calls N] [--pool] [sqlite|postgres|mariadb ...]\n"
                  "Makes N cheap calls (default 1000000) on each database named (default all)\n"
                  "and prints resident memory and open descriptors as it goes.\n", argv[0]);
      return argument == "--help" ? 0 : 2;
    }
  }
  if (calls <= 0) return 2;
  if (names.empty()) names = {"sqlite", "postgres", "mariadb"};
  bool ok = true;
  for (const std::string& name : names) {
    const bench::Target& target = name == "sqlite"     ? bench::kSqlite
                                  : name == "postgres" ? bench::kPostgres
                                                       : bench::kMariadb;
    ok = Run(name.c_str(), target, calls, options) && ok;
  }
  for (const bench::CreatedTable& table : bench::created_tables)
    if (bench::Use(*table.target)) dbRemoveTable(bench::Token(), table.name.c_str(), nullptr, 0);
  return ok ? 0 : 1;
}
