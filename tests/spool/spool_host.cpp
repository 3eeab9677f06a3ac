// A host for the store-and-forward tests: writes alarms, log entries and
// samples at a steady rate, noting each call that returned 0.
//
//   spool_host write CONFIG PREFIX FIRST SECONDS RATE NOTES
//   spool_host collect CONFIG PREFIX
//
// Every write carries its number n (from FIRST on): the alarm's value, the
// log entry's source, the sample's value. NOTES gets "a n", "l n" or "s n"
// per acknowledged call. "collect" prints "a n" per stored alarm in id order
// and drops the tables (for hosts without the server's client).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "scadastore.h"

namespace {

int token;

// A data table of one float column "n".
struct SampleTable {
  alignas(DataTableInfo) unsigned char bytes[sizeof(DataTableInfo) + sizeof(ColumnInfo)] = {};
  DataTableInfo& info = *reinterpret_cast<DataTableInfo*>(bytes);
};

void Describe(SampleTable& table, const std::string& prefix) {
  std::snprintf(table.info.name, sizeof table.info.name, "%s_s", prefix.c_str());
  table.info.recordSize = 16 + 8;
  table.info.columnCount = 1;
  table.info.columns[0].type = SCADASTORE_VALUE_FLOAT;
  std::strcpy(table.info.columns[0].name, "n");
}

uint32_t Write(char family, const std::string& prefix, const SampleTable& samples, uint32_t n) {
  const std::string table = prefix + "_" + family;
  if (family == 'a') {
    AlarmRecord alarm{};
    std::strcpy(alarm.station, "plant");
    std::snprintf(alarm.tag, sizeof alarm.tag, "tag%u", n % 7);
    alarm.value = n;
    alarm.arisetime = static_cast<uint32_t>(time(nullptr));
    return almSetAlarm(&token, table.c_str(), &alarm, sizeof alarm);
  }
  if (family == 'l') {
    LogRecord entry{};
    entry.logtime = static_cast<uint32_t>(time(nullptr));
    std::snprintf(entry.source, sizeof entry.source, "%u", n);
    std::strcpy(entry.loginfo, "spool test");
    return logSetLog(&token, table.c_str(), &entry, sizeof entry);
  }
  unsigned char record[24] = {};
  const uint32_t now = static_cast<uint32_t>(time(nullptr));
  const double value = n;
  std::memcpy(record + 4, &now, 4);
  std::memcpy(record + 16, &value, 8);
  return sgSetRecord(&token, &samples.info, reinterpret_cast<const DataRecord*>(record),
                     sizeof record);
}

int RunWriter(const std::string& prefix, uint32_t first, double seconds, double rate,
              const char* notes) {
  SampleTable samples;
  Describe(samples, prefix);
  almEnsureTableExist(&token, (prefix + "_a").c_str());
  logEnsureTableExist(&token, (prefix + "_l").c_str());
  sgEnsureTableExist(&token, &samples.info, nullptr, 0);
  std::FILE* out = std::fopen(notes, "a");
  if (out == nullptr) return 2;
  const auto start = std::chrono::steady_clock::now();
  const auto period = std::chrono::duration<double>(1.0 / rate);
  uint32_t produced = 0, acknowledged = 0;
  for (uint32_t n = first;; ++n) {
    const auto due = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                 period * (n - first));
    if (due - start > std::chrono::duration<double>(seconds)) break;
    std::this_thread::sleep_until(due);
    const char family = "als"[n % 3];
    ++produced;
    if (Write(family, prefix, samples, n) == 0) {
      // Flushed to the system at once: a killed host's notes stay whole.
      if (std::fprintf(out, "%c %u\n", family, n) < 0 || std::fflush(out) != 0) return 2;
      ++acknowledged;
    } else {
      std::fprintf(stderr, "write %u failed: %s\n", n, dbGetLastError());
    }
  }
  std::fclose(out);
  // A host keeps calling: reads forward what is left.
  for (int i = 0; i < 40; ++i) {
    almGetAlarmCount(&token, (prefix + "_a").c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::printf("produced %u acknowledged %u\n", produced, acknowledged);
  return 0;
}

int Collect(const std::string& prefix) {
  const std::string alarms = prefix + "_a";
  std::vector<AlarmRecord> rows(almGetAlarmCount(&token, alarms.c_str()) + 1);
  if (almGetAllAlarm(&token, alarms.c_str(), rows.data(), rows.size() * sizeof rows[0]) != 0)
    return 1;
  for (size_t i = 0; i + 1 < rows.size(); ++i) std::printf("a %.0f\n", double{rows[i].value});
  for (const char* family : {"_a", "_l", "_s"})
    dbRemoveTable(&token, (prefix + family).c_str(), nullptr, 0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (!(mode == "write" && argc == 8) && !(mode == "collect" && argc == 4)) {
    std::fprintf(stderr,
                 "usage: spool_host write CONFIG PREFIX FIRST SECONDS RATE NOTES\n"
                 "       spool_host collect CONFIG PREFIX\n");
    return 2;
  }
  if (dbInitialize(argv[2]) != 0) std::fprintf(stderr, "dbInitialize: 1 (%s)\n", dbGetLastError());
  if (mode == "collect") return Collect(argv[3]);
  return RunWriter(argv[3], std::strtoul(argv[4], nullptr, 10), std::atof(argv[5]),
                   std::atof(argv[6]), argv[7]);
}
