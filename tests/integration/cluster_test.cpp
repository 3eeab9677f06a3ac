// Several writers of one table, as threads and as processes (on Galera through
// two nodes), and failover of the clusters of scripts/cluster: kill -9 and
// SIGSTOP of the node in use. POSIX only: writers are forked, nodes signalled.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/data_tables.h"
#include "support/databases.h"
#include "tools/monitor_receiver.h"

namespace scadastore::testing {
namespace {

constexpr uint32_t kCalls = 60;
constexpr uint32_t kLogSize = 914;  // a packed log record

class ClusterTest : public DatabaseTest {
 protected:
  // The second writer's data source: another node where the cluster has one.
  std::string SecondConfig() {
    const char* second = std::getenv((GetParam().envVar + "_SECOND").c_str());
    return second ? second + (";" + std::to_string(kind())) : GetParam().Config();
  }
  void WriteTogether(bool processes);
};

// The 32-bit field at `offset` of each stored record of `table`.
std::multiset<uint32_t> StoredFields(DataTable& table, uint32_t offset) {
  void* block = nullptr;
  uint32_t size = 0;
  EXPECT_EQ(sgGetRecord(Token(), table.info(), &block, &size, nullptr), 0u) << LastError();
  std::multiset<uint32_t> fields;
  for (uint32_t at = 0; at + table.recordSize() <= size; at += table.recordSize())
    fields.insert(*reinterpret_cast<uint32_t*>(static_cast<char*>(block) + at + offset));
  FreeResultBlock(block);
  return fields;
}

size_t Distinct(const std::multiset<uint32_t>& values) {
  return std::set<uint32_t>(values.begin(), values.end()).size();
}

// Writer `w` stores kCalls samples and kCalls pairs of log entries, each
// pair in one call; returns the calls that failed.
int Write(int w, const DataTableInfo* data, const std::string& logs) {
  RecordBuffer sample(data->recordSize, 1);
  RecordBuffer pair(kLogSize, 2);
  int failed = 0;
  for (uint32_t i = 0; i < kCalls; ++i) {
    const uint32_t time = uint32_t(w) * kCalls + i + 1;
    sample.Put<uint32_t>(0, 4, time);
    pair.Put<uint32_t>(0, 4, 2 * time);
    pair.Put<uint32_t>(1, 4, 2 * time + 1);
    failed += sgSetRecord(Token(), data, sample.record(0), data->recordSize) != 0;
    failed += logSetLog(Token(), logs.c_str(), reinterpret_cast<const LogRecord*>(pair.data()),
                           pair.bytes()) != 0;
  }
  return failed;
}

// Two writers (threads or processes) of one table store every record once.
void ClusterTest::WriteTogether(bool processes) {
  DataTable data(DropAtEnd(UniqueTableName("writers")), Columns{{"v", SCADASTORE_VALUE_FLOAT}});
  const std::string logs = DropAtEnd(UniqueTableName("writer_log"));
  ASSERT_EQ(sgEnsureTableExist(Token(), data.info(), nullptr, 0), 0u) << LastError();
  ASSERT_EQ(logEnsureTableExist(Token(), logs.c_str()), 0u) << LastError();
  int failed = 0;
  if (processes) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(dbInitialize(SecondConfig().c_str()) ? 99 : Write(1, data.info(), logs));
    failed = Write(0, data.info(), logs);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    failed += WEXITSTATUS(status);
  } else {
    std::thread second([&] { failed += Write(1, data.info(), logs); });
    failed += Write(0, data.info(), logs);
    second.join();
  }
  EXPECT_EQ(failed, 0) << LastError();

  const std::multiset<uint32_t> times = StoredFields(data, 4);
  EXPECT_EQ(times.size(), 2 * kCalls);
  EXPECT_EQ(Distinct(times), 2 * kCalls);
  EXPECT_EQ(Distinct(StoredFields(data, 0)), 2 * kCalls);  // ids
  RecordBuffer entries(kLogSize, 4 * kCalls + 1);
  ASSERT_EQ(logGetAllLog(Token(), logs.c_str(), reinterpret_cast<LogRecord*>(entries.data()),
                         entries.bytes()), 0u) << LastError();
  std::multiset<uint32_t> logtimes;
  for (uint32_t k = 0; k <= 4 * kCalls; ++k)
    if (entries.Get<uint32_t>(k, 4)) logtimes.insert(entries.Get<uint32_t>(k, 4));
  EXPECT_EQ(logtimes.size(), 4 * kCalls);
  EXPECT_EQ(Distinct(logtimes), 4 * kCalls);
}

// Retried inserts look like one successful call, to the monitor too.
TEST_P(ClusterTest, TwoWritersOfOneTableLoseNothing) {
  MonitorReceiver monitor;
  std::string error;
  ASSERT_TRUE(monitor.Start(getpid(), error)) << error;
  std::atomic<bool> written{false};
  std::vector<std::string> announced;
  std::thread listener([&] {
    for (MonitorDelivery delivery; !written;)
      if (monitor.Receive(100, delivery)) announced.push_back(delivery.text);
  });
  for (bool processes : {false, true}) {
    SCOPED_TRACE(processes ? "processes" : "threads");
    WriteTogether(processes);
  }
  written = true;
  listener.join();
  EXPECT_EQ(announced, std::vector<std::string>{});
}

using Clock = std::chrono::steady_clock;
constexpr int kLoginSeconds = 3;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// "scripts/cluster ACTION CLUSTER NODE" for the cluster under test.
std::string ClusterCommand(const char* action, bool galera, int node) {
  const char* script = std::getenv("SCADASTORE_CLUSTER");
  return std::string(script ? script : "false") + " " + action + (galera ? " galera " : " pg ") +
         std::to_string(node);
}

pid_t NodePid(int node) {
  FILE* out = popen(ClusterCommand("pid", true, node).c_str(), "r");
  int pid = 0;
  if (out && std::fscanf(out, "%d", &pid) != 1) pid = 0;
  if (out) pclose(out);
  return pid;
}

class FailoverTest : public ClusterTest {
 protected:
  bool IsGalera() const { return GetParam().name == "Galera2"; }
  std::string Config(const char* options) const {
    return GetParam().Config() + ";login=" + std::to_string(kLoginSeconds) + ";timeout=5" + options;
  }
};

// A writer with and one without pooling (a forked process) store samples
// while the node in use is killed (PostgreSQL: the standby, listed first and
// skipped while it is one, is promoted). Every sample acknowledged is on the
// survivors once, and each writer succeeds again within 5 s.
TEST_P(FailoverTest, KillOfTheNodeInUseLosesNoAcknowledgedWrite) {
  // A table per writer: the unpooled one would lose the race for ids to the
  // much faster pooled one.
  std::vector<DataTable> tables;
  for (const char* name : {"failover", "failover_unpooled"}) {
    tables.emplace_back(DropAtEnd(UniqueTableName(name)), Columns{{"v", SCADASTORE_VALUE_FLOAT}});
    ASSERT_EQ(sgEnsureTableExist(Token(), tables.back().info(), nullptr, 0), 0u) << LastError();
  }
  if (!IsGalera()) {  // the standby refuses a write given to it directly
    ASSERT_EQ(dbInitialize((std::string(std::getenv("SCADASTORE_TEST_PGPAIR_STANDBY")) + ";5")
                               .c_str()), 0u) << LastError();
    RecordBuffer sample(tables[0].recordSize(), 1);
    EXPECT_TRUE(Refused(sgSetRecord(Token(), tables[0].info(), sample.record(0),
                                    tables[0].recordSize()), 1, "[rcd104] exec error"));
  }
  int pipes[2];
  ASSERT_EQ(pipe(pipes), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  const bool pooled = child != 0;
  DataTable& table = tables[pooled ? 0 : 1];
  if (dbInitialize(Config(pooled ? ";pool" : "").c_str()) != 0) _exit(98);
  // Each writer: times acknowledged, and its longest wait for a success after the kill.
  std::vector<uint32_t> acknowledged;
  double longestGap = 0;
  const Clock::time_point start = Clock::now();
  Clock::time_point lastSuccess = start;
  RecordBuffer sample(table.recordSize(), 1);
  for (uint32_t i = 1; SecondsSince(start) < 6; ++i) {
    if (pooled && i == 30) {
      std::string command = ClusterCommand("kill", IsGalera(), 1);
      if (!IsGalera()) command += " && " + ClusterCommand("promote", false, 2);
      EXPECT_EQ(std::system(command.c_str()), 0);
    }
    sample.Put<uint32_t>(0, 4, (pooled ? 0 : 1u << 30) + i);
    if (sgSetRecord(Token(), table.info(), sample.record(0), table.recordSize()) != 0) continue;
    acknowledged.push_back((pooled ? 0 : 1u << 30) + i);
    longestGap = std::max(longestGap, SecondsSince(lastSuccess));
    lastSuccess = Clock::now();
  }
  if (!pooled) {
    for (uint32_t time : acknowledged) (void)!write(pipes[1], &time, sizeof time);
    _exit(longestGap < 5 ? 0 : 97);
  }
  close(pipes[1]);
  for (uint32_t time; read(pipes[0], &time, sizeof time) == sizeof time;) acknowledged.push_back(time);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the unpooled writer waited 5 s or more for a success";
  EXPECT_LT(longestGap, 5.0);

  std::multiset<uint32_t> stored = StoredFields(tables[0], 4);
  stored.merge(StoredFields(tables[1], 4));
  for (uint32_t time : acknowledged) EXPECT_EQ(stored.count(time), 1u) << time;
  std::printf("acknowledged %zu, on the survivors %zu, longest wait for a success %.2f s\n",
              acknowledged.size(), stored.size(), longestGap);
  EXPECT_EQ(std::system(IsGalera() ? ClusterCommand("start", true, 1).c_str() : "true"), 0);
}

// SIGSTOP of the node in use: the next call succeeds within the login
// time-out + 1 s, and the 20 after it pay no time-out. Galera only: a frozen
// PostgreSQL primary leaves no writable server until a promotion.
TEST_P(FailoverTest, FrozenNodeCostsOneCallTheLoginTimeOut) {
  if (!IsGalera()) GTEST_SKIP() << "a frozen primary leaves no writable server";
  DataTable data(DropAtEnd(UniqueTableName("frozen")), Columns{{"v", SCADASTORE_VALUE_FLOAT}});
  ASSERT_EQ(sgEnsureTableExist(Token(), data.info(), nullptr, 0), 0u) << LastError();
  ASSERT_EQ(dbInitialize(Config("").c_str()), 0u) << LastError();
  const pid_t node = NodePid(1);
  ASSERT_GT(node, 0);
  ASSERT_EQ(kill(node, SIGSTOP), 0);
  RecordBuffer sample(data.recordSize(), 1);
  std::vector<double> seconds;
  for (uint32_t i = 1; i <= 21; ++i) {
    const Clock::time_point start = Clock::now();
    sample.Put<uint32_t>(0, 4, i);
    EXPECT_EQ(sgSetRecord(Token(), data.info(), sample.record(0), data.recordSize()), 0u)
        << LastError();
    seconds.push_back(SecondsSince(start));
  }
  kill(node, SIGCONT);
  EXPECT_LT(seconds[0], kLoginSeconds + 1.0);
  for (size_t i = 1; i < seconds.size(); ++i) EXPECT_LT(seconds[i], 1.0) << "call " << i + 1;
  std::printf("frozen node: first call %.2f s, slowest of the next 20 %.2f s\n", seconds[0],
              *std::max_element(seconds.begin() + 1, seconds.end()));
}

std::vector<Database> Clusters() {
  return {{"Galera2", "SCADASTORE_TEST_GALERA", 2}, {"PgPair5", "SCADASTORE_TEST_PGPAIR", 5}};
}

INSTANTIATE_TEST_SUITE_P(Databases, ClusterTest, ::testing::ValuesIn([] {
                           std::vector<Database> all = Databases({1});
                           all.push_back(Clusters()[0]);
                           return all;
                         }()),
                         DatabaseName);
INSTANTIATE_TEST_SUITE_P(Clusters, FailoverTest, ::testing::ValuesIn(Clusters()), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
