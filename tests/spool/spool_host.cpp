// A host for the store-and-forward tests: writes alarms, log entries and
// samples at a steady rate, noting each call that returned 0, and checks a
// database against those notes.
//
//   spool_host write CONFIG PREFIX FIRST SECONDS RATE NOTES
//   spool_host check CONFIG PREFIX NOTES
//
// Every write carries its number n (from FIRST on): the alarm's value, the
// log entry's source, the sample's value. NOTES gets "a n", "l n" or "s n"
// per acknowledged call. check prints the counts and fails when an
// acknowledged write is missing or stored twice, or a table's rows are not
// in call order.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
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
  const int out = open(notes, O_WRONLY | O_CREAT | O_APPEND, 0644);
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
      char line[32];
      const int length = std::snprintf(line, sizeof line, "%c %u\n", family, n);
      if (write(out, line, static_cast<size_t>(length)) != length) return 2;
      ++acknowledged;
    } else {
      std::fprintf(stderr, "write %u failed: %s\n", n, dbGetLastError());
    }
  }
  close(out);
  // A host keeps calling: reads forward what is left.
  for (int i = 0; i < 40; ++i) {
    almGetAlarmCount(&token, (prefix + "_a").c_str());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::printf("produced %u acknowledged %u\n", produced, acknowledged);
  return 0;
}

// The numbers stored in one table, in id order.
std::vector<uint32_t> Stored(char family, const std::string& prefix) {
  const std::string table = prefix + "_" + family;
  std::vector<uint32_t> numbers;
  if (family == 'a' || family == 'l') {
    const uint32_t count = family == 'a' ? almGetAlarmCount(&token, table.c_str())
                                         : logGetLogCount(&token, table.c_str());
    if (family == 'a') {
      std::vector<AlarmRecord> rows(count + 1);
      almGetAllAlarm(&token, table.c_str(), rows.data(), count * sizeof(AlarmRecord));
      for (uint32_t i = 0; i < count; ++i) numbers.push_back(static_cast<uint32_t>(rows[i].value));
    } else {
      std::vector<LogRecord> rows(count + 1);
      logGetAllLog(&token, table.c_str(), rows.data(), count * sizeof(LogRecord));
      for (uint32_t i = 0; i < count; ++i) numbers.push_back(std::strtoul(rows[i].source, nullptr, 10));
    }
    return numbers;
  }
  SampleTable samples;
  Describe(samples, prefix);
  void* block = nullptr;
  uint32_t size = 0;
  if (sgGetRecord(&token, &samples.info, &block, &size, nullptr) != 0) return numbers;
  for (uint32_t at = 0; at + 24 <= size; at += 24) {
    double value;
    std::memcpy(&value, static_cast<unsigned char*>(block) + at + 16, 8);
    numbers.push_back(static_cast<uint32_t>(value));
  }
  std::free(block);
  return numbers;
}

int RunCheck(const std::string& prefix, const char* notes) {
  std::map<char, std::set<uint32_t>> acknowledged;
  std::ifstream in(notes);
  char family;
  uint32_t n;
  size_t acked = 0;
  while (in >> family >> n) acked += acknowledged[family].insert(n).second;
  size_t stored = 0, lost = 0, duplicated = 0, disordered = 0, unacknowledged = 0;
  for (char f : {'a', 'l', 's'}) {
    const std::vector<uint32_t> numbers = Stored(f, prefix);
    std::set<uint32_t> seen;
    uint32_t previous = 0;
    for (uint32_t number : numbers) {
      ++stored;
      if (!seen.insert(number).second) ++duplicated;
      if (number < previous) ++disordered;
      previous = number;
      if (!acknowledged[f].count(number)) ++unacknowledged;
    }
    for (uint32_t number : acknowledged[f])
      if (!seen.count(number) && ++lost <= 10) std::fprintf(stderr, "lost %c %u\n", f, number);
  }
  std::printf("acknowledged %zu stored %zu lost %zu duplicated %zu out-of-order %zu "
              "stored-unacknowledged %zu\n",
              acked, stored, lost, duplicated, disordered, unacknowledged);
  return lost || duplicated || disordered ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (!(mode == "write" && argc == 8) && !(mode == "check" && argc == 5)) {
    std::fprintf(stderr, "usage: spool_host write CONFIG PREFIX FIRST SECONDS RATE NOTES\n"
                         "       spool_host check CONFIG PREFIX NOTES\n");
    return 2;
  }
  if (dbInitialize(argv[2]) != 0) std::fprintf(stderr, "dbInitialize: 1 (%s)\n", dbGetLastError());
  if (mode == "check") return RunCheck(argv[3], argv[4]);
  return RunWriter(argv[3], std::strtoul(argv[4], nullptr, 10), std::atof(argv[5]),
                   std::atof(argv[6]), argv[7]);
}
