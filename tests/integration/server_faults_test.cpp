// A server that stops answering, sessions that end between calls, and the
// connection pool's promise that every call behaves as on a new connection.
// PostgreSQL and MariaDB only; these tests freeze and restart the server, so
// ctest runs them alone.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/connection.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

pid_t ParentOf(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(stat, line);
  const size_t afterName = line.rfind(')');
  if (afterName == std::string::npos) return 0;
  char state = 0;
  pid_t parent = 0;
  std::sscanf(line.c_str() + afterName + 1, " %c %d", &state, &parent);
  return parent;
}

// Stops a server process and its children (PostgreSQL's backends) with
// SIGSTOP; they continue when this object ends.
class FrozenServer {
 public:
  explicit FrozenServer(pid_t server) : pids_{server} {
    DIR* proc = opendir("/proc");
    while (const dirent* entry = readdir(proc)) {
      const pid_t pid = std::atoi(entry->d_name);
      if (pid > 0 && ParentOf(pid) == server) pids_.push_back(pid);
    }
    closedir(proc);
    for (pid_t pid : pids_) kill(pid, SIGSTOP);
  }
  ~FrozenServer() {
    for (pid_t pid : pids_) kill(pid, SIGCONT);
  }

 private:
  std::vector<pid_t> pids_;
};

class ServerFaultTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u) << dbGetLastError();
  }

  bool postgres() const { return kind() == 5; }

  // The process id of the server, from the pid file that the test script names.
  pid_t ServerPid() const {
    const char* file = std::getenv(postgres() ? "SCADASTORE_TEST_PG_PIDFILE"
                                              : "SCADASTORE_TEST_MARIA_PIDFILE");
    std::ifstream pidFile(file ? file : "");
    pid_t pid = 0;
    pidFile >> pid;
    return pid;
  }

  void Configure(const std::string& options) {
    ASSERT_EQ(dbInitialize((GetParam().Config() + options).c_str()), 0u);
  }

  uint32_t Count() { return sgGetRecordCount(Token(), table.info()); }
  uint32_t AddRecord() {
    RecordBuffer record(table.recordSize(), 1);
    record.Put<double>(0, 16, 1.5);
    return sgSetRecord(Token(), table.info(), record.record(0), table.recordSize());
  }

  // Ends every other session of the test database from a connection of its own.
  void EndOtherSessions() {
    const std::string config = GetParam().Config();
    const size_t user = config.find(';'), password = config.find(';', user + 1);
    const std::string dsn = config.substr(0, user), name = config.substr(user + 1, password - user - 1),
                      secret = config.substr(password + 1, config.rfind(';') - password - 1);
    DbConnection admin(kind());
    ASSERT_EQ(admin.Open(dsn.c_str(), name.c_str(), secret.c_str()), 1) << admin.ErrorText();
    if (postgres()) {
      ASSERT_EQ(admin.Execute("select pg_terminate_backend(pid) from pg_stat_activity where "
                              "pid <> pg_backend_pid() and datname = current_database()"), 1)
          << admin.ErrorText();
      return;
    }
    ASSERT_EQ(admin.OpenQuery("select id from information_schema.processlist where "
                              "id <> connection_id() and db = database()"), 1);
    std::vector<uint32_t> ids;
    for (int more = admin.MoveFirst(); more; more = admin.MoveNext()) {
      uint32_t id = 0;
      admin.GetInteger(1, &id, 4);
      ids.push_back(id);
    }
    for (uint32_t id : ids) admin.Execute(("kill " + std::to_string(id)).c_str());
  }

  DataTable table{DropAtEnd(UniqueTableName("faults")), {{"value", SCADASTORE_VALUE_FLOAT}}};
};

TEST_P(ServerFaultTest, FrozenServerBoundsConnectAndStatement) {
  Configure(";login=3;timeout=4");
  {
    FrozenServer frozen(ServerPid());
    const auto start = Clock::now();
    EXPECT_EQ(Count(), 0xFFFFFFFFu);
    EXPECT_LT(SecondsSince(start), 5.0) << "connect waited past the login time-out";
    EXPECT_EQ(std::string(dbGetLastError()).rfind("[rcd1302] failed to open DSN", 0), 0u)
        << dbGetLastError();
  }

  // The server freezes while the statement sleeps: without the bound the call
  // would wait as long as the server stays frozen.
  std::optional<FrozenServer> frozen;
  std::thread freezer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    frozen.emplace(ServerPid());
  });
  const auto start = Clock::now();
  const uint32_t result = sgOperateRecord(Token(), table.info(),
                                          postgres() ? "select pg_sleep(3)" : "select sleep(3)");
  const double seconds = SecondsSince(start);
  freezer.join();
  frozen.reset();
  EXPECT_EQ(result, 1u);
  EXPECT_EQ(std::string(dbGetLastError()).rfind("[rcd1603] exec error", 0), 0u) << dbGetLastError();
  EXPECT_GE(seconds, 3.9);
  EXPECT_LT(seconds, 7.0);
  EXPECT_EQ(AddRecord(), 0u) << dbGetLastError();
}

// A pooled session meets a frozen server: the table lookup of an ensure call
// gives up at the statement bound, the connect that follows at the login
// time-out, and the call fails (1: ensure calls write no error text) instead
// of waiting for the server.
TEST_P(ServerFaultTest, FrozenServerBoundsTheTableLookup) {
  Configure(";pool;login=2;timeout=2");
  ASSERT_EQ(Count(), 0u) << dbGetLastError();  // leaves its session in the pool
  std::optional<FrozenServer> frozen(std::in_place, ServerPid());
  std::promise<void> returned;
  std::thread thaw([&, done = returned.get_future()] {
    done.wait_for(std::chrono::seconds(12));
    frozen.reset();
  });
  const auto start = Clock::now();
  const uint32_t result = sgEnsureTableExist(Token(), table.info(), nullptr, 0);
  const double seconds = SecondsSince(start);
  returned.set_value();
  thaw.join();
  EXPECT_EQ(result, 1u);
  EXPECT_GE(seconds, 3.9);
  EXPECT_LT(seconds, 7.0) << "the lookup waited for the frozen server";
  EXPECT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u) << dbGetLastError();
}

TEST_P(ServerFaultTest, PooledCallsStartAsOnANewConnectionAndCheckTheirLogin) {
  Configure(";pool");
  const char* leftOpen[] = {"begin", postgres() ? "set search_path = nowhere" : "set autocommit = 0"};
  uint32_t stored = 0;
  for (const char* statement : leftOpen) {
    ASSERT_EQ(sgOperateRecord(Token(), table.info(), statement), 0u) << dbGetLastError();
    ASSERT_EQ(AddRecord(), 0u) << statement << ": " << dbGetLastError();
    ++stored;
  }
  Configure("");  // frees the pool: what it held was committed or is gone
  EXPECT_EQ(Count(), stored);

  // A wrong password is refused though a pooled session is at hand.
  Configure(";pool");
  ASSERT_EQ(Count(), stored);
  std::string config = GetParam().Config();
  const size_t password = config.find(';', config.find(';') + 1) + 1;
  config.replace(password, config.find(';', password) - password, "wrong-password");
  EXPECT_EQ(dbInitialize((config + ";pool").c_str()), 1u);
  EXPECT_EQ(Count(), 0xFFFFFFFFu);
}

TEST_P(ServerFaultTest, EndedSessionCostsNoFailedCall) {
  Configure(";pool");
  ASSERT_EQ(AddRecord(), 0u) << dbGetLastError();
  EndOtherSessions();
  EXPECT_EQ(Count(), 1u) << dbGetLastError();
  if (!postgres()) return;
  const char* data = std::getenv("SCADASTORE_TEST_PG_DATA");
  const char* pgCtl = std::getenv("SCADASTORE_TEST_PG_CTL");
  ASSERT_TRUE(data && pgCtl);
  const std::string restart = std::string("runuser -u postgres -- ") + pgCtl + " -D " + data +
                              " -m fast -w -t 60 restart >/dev/null";
  ASSERT_EQ(std::system(restart.c_str()), 0);
  EXPECT_EQ(AddRecord(), 0u) << dbGetLastError();
}

INSTANTIATE_TEST_SUITE_P(Databases, ServerFaultTest, ::testing::ValuesIn(Databases({})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
