// Servers that stop answering, die or restart under the library; the clusters
// of scripts/cluster across kill -9, SIGSTOP and promotion; several writers of
// one table. POSIX only: servers are signalled, writers forked.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/data_tables.h"
#include "support/databases.h"
#include "tools/monitor_receiver.h"

namespace scadastore::testing {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The process ids that a shell command prints.
std::vector<pid_t> PidsPrinted(const std::string& command) {
  std::vector<pid_t> pids;
  if (FILE* out = popen(command.c_str(), "r")) {
    for (int pid; std::fscanf(out, "%d", &pid) == 1 && pid > 0;) pids.push_back(pid);
    pclose(out);
  }
  return pids;
}

// The seconds `call` took while `server` and its children (PostgreSQL's
// backends) were stopped with SIGSTOP from `delay` on.
double SecondsFrozenDuring(pid_t server, double delay, const std::function<void()>& call) {
  const std::string pid = std::to_string(server);
  const std::vector<pid_t> pids =
      PidsPrinted(server > 0 ? "ps -o pid= -p " + pid + " --ppid " + pid : "true");
  const auto signal = [&](int number) {
    for (pid_t pid : pids) kill(pid, number);
  };
  std::thread freezer([&] {
    std::this_thread::sleep_for(std::chrono::duration<double>(delay));
    signal(SIGSTOP);
  });
  if (delay == 0) freezer.join();
  const Clock::time_point start = Clock::now();
  call();
  const double seconds = SecondsSince(start);
  if (freezer.joinable()) freezer.join();
  signal(SIGCONT);
  return seconds;
}

uint32_t AddSample(DataTable& table, uint32_t time) {
  RecordBuffer sample(table.recordSize(), 1);
  sample.Put<uint32_t>(0, 4, time);
  return sgSetRecord(Token(), table.info(), sample.record(0), table.recordSize());
}

class ServerFaultTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u) << LastError();
  }

  bool postgres() const { return kind() == 5; }

  // The process id of the server, from the pid file that the test script names.
  pid_t ServerPid() const {
    const char* file = std::getenv(postgres() ? "SCADASTORE_TEST_PG_PIDFILE"
                                              : "SCADASTORE_TEST_MARIA_PIDFILE");
    const std::vector<pid_t> pids = PidsPrinted("cat " + std::string(file ? file : "/dev/null"));
    return pids.empty() ? 0 : pids.front();
  }

  void Configure(const std::string& options) {
    ASSERT_EQ(dbInitialize((GetParam().Config() + options).c_str()), 0u);
  }

  uint32_t Count() { return sgGetRecordCount(Token(), table.info()); }

  DataTable table{DropAtEnd(UniqueTableName("faults")), {{"value", SCADASTORE_VALUE_FLOAT}}};
};

// A frozen server bounds every wait: a connect at the login time-out; a
// statement of a pooled session at the statement bound, also when the server
// froze while the statement ran; a pooled ensure call's table lookup at the
// statement bound plus the connect after it (1: ensure calls write no text).
TEST_P(ServerFaultTest, FrozenServerBoundsEveryWait) {
  Configure(";login=3;timeout=4");
  const char* sleep3 = postgres() ? "select pg_sleep(3)" : "select sleep(3)";
  double seconds = SecondsFrozenDuring(ServerPid(), 0, [&] {
    EXPECT_TRUE(Refused(Count(), 0xFFFFFFFFu, "[rcd1302] failed to open DSN"));
  });
  EXPECT_LT(seconds, 4.0) << "connect waited past the login time-out";
  Configure(";pool;login=3;timeout=4");  // leaves its session in the pool
  seconds = SecondsFrozenDuring(ServerPid(), 1, [&] {
    EXPECT_TRUE(Refused(sgOperateRecord(Token(), table.info(), sleep3), 1, "[rcd1603] exec error"));
  });
  EXPECT_GE(seconds, 3.9);
  EXPECT_LT(seconds, 5.5) << "the statement waited for the frozen server";
  ASSERT_EQ(AddSample(table, 1), 0u) << LastError();
  seconds = SecondsFrozenDuring(ServerPid(), 0, [&] {
    EXPECT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 1u);
  });
  EXPECT_GE(seconds, 3.9);
  EXPECT_LT(seconds, 8.5) << "the lookup waited for the frozen server";
  EXPECT_EQ(Count(), 1u) << LastError();
}

// Pooled sessions: a call starts as on a new connection, a login is checked,
// and a restart of the server costs no failed call.
TEST_P(ServerFaultTest, PooledCallsStartAsOnANewConnection) {
  Configure(";pool");
  const char* leftOpen[] = {"begin", postgres() ? "set search_path = nowhere" : "set autocommit = 0"};
  uint32_t stored = 0;
  for (const char* statement : leftOpen) {
    ASSERT_EQ(sgOperateRecord(Token(), table.info(), statement), 0u) << LastError();
    ASSERT_EQ(AddSample(table, ++stored), 0u) << statement << ": " << LastError();
  }
  Configure("");  // frees the pool: what it held was committed or is gone
  EXPECT_EQ(Count(), stored);

  std::string config = GetParam().Config();
  const size_t password = config.find(';', config.find(';') + 1) + 1;
  config.replace(password, config.find(';', password) - password, "wrong-password");
  Configure(";pool");
  ASSERT_EQ(Count(), stored);  // leaves its session in the pool
  EXPECT_EQ(dbInitialize((config + ";pool").c_str()), 1u);
  EXPECT_EQ(Count(), 0xFFFFFFFFu);

  const char* data = std::getenv("SCADASTORE_TEST_PG_DATA");
  const char* pgCtl = std::getenv("SCADASTORE_TEST_PG_CTL");
  if (!postgres() || !data || !pgCtl) return;
  Configure(";pool");  // its first session stays in the pool
  const std::string restart = std::string("runuser -u postgres -- ") + pgCtl + " -D " + data +
                              " -m fast -w -t 60 restart >/dev/null";
  ASSERT_EQ(std::system(restart.c_str()), 0);
  EXPECT_EQ(AddSample(table, ++stored), 0u) << LastError();
}

constexpr uint32_t kCalls = 60;
constexpr uint32_t kLogSize = 914;  // a packed log record

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

// `count` numbers from `first` on, each once.
std::multiset<uint32_t> Range(uint32_t first, uint32_t count) {
  std::multiset<uint32_t> numbers;
  while (count-- > 0) numbers.insert(first++);
  return numbers;
}

// Writer `w` stores kCalls samples and kCalls pairs of log entries, each
// pair in one call; returns the calls that failed.
int Write(int w, DataTable& data, const std::string& logs) {
  RecordBuffer pair(kLogSize, 2);
  int failed = 0;
  for (uint32_t i = 0; i < kCalls; ++i) {
    const uint32_t time = uint32_t(w) * kCalls + i + 1;
    pair.Put<uint32_t>(0, 4, 2 * time);
    pair.Put<uint32_t>(1, 4, 2 * time + 1);
    failed += AddSample(data, time) != 0;
    failed += logSetLog(Token(), logs.c_str(), reinterpret_cast<const LogRecord*>(pair.data()),
                        pair.bytes()) != 0;
  }
  return failed;
}

class ClusterTest : public DatabaseTest {
 protected:
  // The second writer's data source: another node where the cluster has one.
  std::string SecondConfig() {
    const char* second = std::getenv((GetParam().envVar + "_SECOND").c_str());
    return second ? second + (";" + std::to_string(kind())) : GetParam().Config();
  }
  void WriteTogether(bool processes);
};

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
    if (child == 0) _exit(dbInitialize(SecondConfig().c_str()) ? 99 : Write(1, data, logs));
    failed = Write(0, data, logs);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    failed += WEXITSTATUS(status);
  } else {
    std::thread second([&] { failed += Write(1, data, logs); });
    failed += Write(0, data, logs);
    second.join();
  }
  EXPECT_EQ(failed, 0) << LastError();

  EXPECT_EQ(StoredFields(data, 4), Range(1, 2 * kCalls));  // times
  const std::multiset<uint32_t> ids = StoredFields(data, 0);
  EXPECT_EQ(std::set<uint32_t>(ids.begin(), ids.end()).size(), 2 * kCalls);
  RecordBuffer entries(kLogSize, 4 * kCalls + 1);
  ASSERT_EQ(logGetAllLog(Token(), logs.c_str(), reinterpret_cast<LogRecord*>(entries.data()),
                         entries.bytes()), 0u) << LastError();
  std::multiset<uint32_t> logTimes;
  for (uint32_t k = 0; k <= 4 * kCalls; ++k)
    if (entries.Get<uint32_t>(k, 4)) logTimes.insert(entries.Get<uint32_t>(k, 4));
  EXPECT_EQ(logTimes, Range(2, 4 * kCalls));
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

constexpr int kLoginSeconds = 3, kBoundSeconds = 5;

// What a writer saw from the disturbance on: its failed calls, its calls
// slower than a second, and its longest wait for a success.
struct Writer {
  uint32_t failed = 0, slow = 0;
  double longestGap = 0;
};

class FailoverTest : public ClusterTest {
 protected:
  // "scripts/cluster ACTION CLUSTER NODE" for the cluster under test.
  std::string Cluster(const char* action, int node) const {
    const char* script = std::getenv("SCADASTORE_CLUSTER");
    return std::string(script ? script : "false") + " " + action +
           (GetParam().kind == 2 ? " galera " : " pg ") + std::to_string(node);
  }

  // A writer with and one without pooling (a forked process) store samples
  // for 12 s; the pooled one runs `disturb` before its 30th call. Every sample
  // acknowledged is on the survivors once, and each writer pays for the
  // disturbance with one slow call at most; a connect caught after its login
  // waits the statement bound too. Returns what the pooled writer saw.
  Writer WriteThrough(const std::string& disturb) {
    std::vector<DataTable> tables;  // the faster pooled writer would win every id
    for (const char* name : {"failover", "failover_unpooled"}) {
      tables.emplace_back(DropAtEnd(UniqueTableName(name)), Columns{{"v", SCADASTORE_VALUE_FLOAT}});
      EXPECT_EQ(sgEnsureTableExist(Token(), tables.back().info(), nullptr, 0), 0u) << LastError();
    }
    int pipes[2];
    if (pipe(pipes) != 0) return {};
    const pid_t child = fork();
    const uint32_t base = child == 0 ? 1u << 30 : 0;
    const std::string options = ";login=" + std::to_string(kLoginSeconds) +
                                ";timeout=" + std::to_string(kBoundSeconds) + (base ? "" : ";pool");
    if (dbInitialize((GetParam().Config() + options).c_str())) _exit(98);
    Writer writer, unpooled;
    std::vector<uint32_t> acknowledged;
    const Clock::time_point start = Clock::now();
    Clock::time_point lastSuccess = start;
    for (uint32_t i = 1; SecondsSince(start) < 12; ++i) {
      if (i == 30 && base == 0 && std::system(disturb.c_str()) != 0) ADD_FAILURE() << disturb;
      const Clock::time_point call = Clock::now();
      const bool stored = AddSample(tables[base ? 1 : 0], base + i) == 0;
      if (i >= 30) {
        writer.failed += !stored;
        writer.slow += SecondsSince(call) > 1;
        if (stored) writer.longestGap = std::max(writer.longestGap, SecondsSince(lastSuccess));
      }
      if (stored) acknowledged.push_back(base + i), lastSuccess = Clock::now();
    }
    if (base) {
      (void)!write(pipes[1], &writer, sizeof writer);
      for (uint32_t time : acknowledged) (void)!write(pipes[1], &time, sizeof time);
      _exit(0);
    }
    close(pipes[1]);
    (void)!read(pipes[0], &unpooled, sizeof unpooled);
    for (uint32_t time; read(pipes[0], &time, sizeof time) == sizeof time;)
      acknowledged.push_back(time);
    close(pipes[0]);
    waitpid(child, nullptr, 0);
    EXPECT_LT(writer.longestGap, kBoundSeconds + 1);
    EXPECT_LT(unpooled.longestGap, kLoginSeconds + kBoundSeconds + 1);
    EXPECT_LE(writer.slow, 1u);
    EXPECT_LE(unpooled.slow, 1u);
    std::multiset<uint32_t> stored = StoredFields(tables[0], 4);
    stored.merge(StoredFields(tables[1], 4));
    for (uint32_t time : acknowledged) EXPECT_EQ(stored.count(time), 1u) << time;
    std::printf("acknowledged %zu, on the survivors %zu; longest wait for a success: pooled"
                " %.2f s, unpooled %.2f s\n", acknowledged.size(), stored.size(),
                writer.longestGap, unpooled.longestGap);
    return writer;
  }
};

// kill -9, then SIGSTOP, of the node in use. PostgreSQL: the standby, listed
// first, is skipped while it is one and refuses a write given to it
// directly; it is promoted when the primary goes, and the old primary comes
// back as its standby (after the kill) or stays fenced (after the freeze).
// A pooled session of a killed node is never handed out again: no pooled call
// fails. A frozen node's pooled session fails once at the statement bound.
TEST_P(FailoverTest, KillAndFreezeOfTheNodeInUse) {
  const bool galera = kind() == 2;
  if (!galera) {
    DataTable table(DropAtEnd(UniqueTableName("standby")), Columns{{"v", SCADASTORE_VALUE_FLOAT}});
    ASSERT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u) << LastError();
    ASSERT_EQ(dbInitialize((std::getenv("SCADASTORE_TEST_PGPAIR_STANDBY") + std::string(";5"))
                               .c_str()), 0u) << LastError();
    EXPECT_TRUE(Refused(AddSample(table, 1), 1, "[rcd104] exec error"));
  }
  struct {
    std::string disturb, after;
    uint32_t pooledFailures;
  } const steps[] = {
      {galera ? Cluster("kill", 1) : Cluster("kill", 1) + " && " + Cluster("promote", 2),
       Cluster(galera ? "start" : "rejoin", 1), 0},
      {galera ? Cluster("freeze", 1) : Cluster("freeze", 2) + " && " + Cluster("promote", 1),
       galera ? Cluster("thaw", 1) : Cluster("kill", 2), 1},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.disturb);
    ASSERT_EQ(dbInitialize(GetParam().Config().c_str()), 0u) << LastError();
    EXPECT_EQ(WriteThrough(step.disturb).failed, step.pooledFailures);
    EXPECT_EQ(std::system(step.after.c_str()), 0) << step.after;
  }
}

std::vector<Database> Clusters() {
  return {{"Galera2", "SCADASTORE_TEST_GALERA", 2}, {"PgPair5", "SCADASTORE_TEST_PGPAIR", 5}};
}

INSTANTIATE_TEST_SUITE_P(Databases, ServerFaultTest, ::testing::ValuesIn(Databases({})),
                         DatabaseName);
INSTANTIATE_TEST_SUITE_P(Databases, ClusterTest, ::testing::ValuesIn([] {
                           std::vector<Database> all = Databases({1});
                           all.push_back(Clusters()[0]);
                           return all;
                         }()),
                         DatabaseName);
INSTANTIATE_TEST_SUITE_P(Clusters, FailoverTest, ::testing::ValuesIn(Clusters()), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
