// Store and forward on each database: what is kept and what is not, the
// order and uniqueness of what is forwarded, rows the database refuses, an
// insert of unknown outcome, and a damaged journal. The database is taken
// away by pointing a data source of the test's own at nothing: a closed port,
// a SQLite file in a missing directory, a SQLite file locked by another session.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "core/connection.h"
#include "core/spool.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

class SpoolTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped()) return;
    original_ = GetParam().Config();
    char dir[] = "/tmp/scadastore-spooltest.XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    dir_ = dir;
    DeclareDataSources();
  }
  void TearDown() override {
    if (!dir_.empty()) {
      dbInitialize(original_.c_str());
      std::filesystem::remove_all(dir_);
    }
    DatabaseTest::TearDown();
  }

  bool sqlite() const { return GetParam().name.rfind("Sqlite", 0) == 0; }
  std::string dsn() const { return original_.substr(0, original_.find(';')); }

  // Once per process (unixODBC keeps what it read of a file): beside each
  // data source D, "spool_up_D" reaching the same database and "spool_down_D"
  // the same driver on nothing (a closed port, a file in a missing directory).
  static void DeclareDataSources() {
    static bool declared = false;
    if (declared) return;
    declared = true;
    std::ifstream in(std::getenv("ODBCINI"));
    std::stringstream text;
    text << in.rdbuf();
    const std::string ini = text.str();
    std::string added;
    for (size_t start = ini.find('['); start != std::string::npos; start = ini.find("\n[", start + 1)) {
      if (ini[start] == '\n') ++start;
      const size_t end = ini.find("\n[", start);
      std::string up = ini.substr(start, end == std::string::npos ? end : end - start + 1);
      const std::string name = up.substr(1, up.find(']') - 1);
      const bool file = up.find("\nDatabase=") != std::string::npos && up.find("SQLite") != std::string::npos;
      const size_t timeout = up.find("Timeout=");  // SQLite's busy time-out
      if (timeout != std::string::npos)
        up.replace(timeout, up.find('\n', timeout) - timeout, "Timeout=300");
      std::string down = up;
      up.replace(0, name.size() + 2, "[spool_up_" + name + "]");
      down.replace(0, name.size() + 2, "[spool_down_" + name + "]");
      for (const char* key : {"\nPort=", "\nPORT=", "\nDatabase="}) {
        const size_t at = down.find(key);
        if (at == std::string::npos || (key[1] == 'D' && !file)) continue;
        const size_t value = at + std::strlen(key);
        down.replace(value, down.find('\n', value) - value,
                     key[1] == 'D' ? "/nonexistent/spool.sqlite" : "1");
      }
      added += up + (up.back() == '\n' ? "" : "\n") + down + (down.back() == '\n' ? "" : "\n");
    }
    const std::string path = IniPath();
    std::ofstream(path) << ini << '\n' << added;
    setenv("ODBCINI", path.c_str(), 1);
  }

  static std::string IniPath() {
    return "/tmp/scadastore-spooltest-" + std::to_string(getpid()) + ".ini";
  }
  static void TearDownTestSuite() { std::filesystem::remove(IniPath()); }

  // The library's settings name the database, or nothing, with the same spool.
  void Reach(bool reachable) {
    const std::string config = (reachable ? "spool_up_" : "spool_down_") + original_ +
                               ";spool=" + dir_ + "/spool";
    EXPECT_EQ(dbInitialize(config.c_str()), reachable ? 0u : 1u);
  }

  // Writes waiting in a spool directory, and its set-aside reasons.
  static size_t Waiting(const std::string& directory,
                        std::vector<std::string>* reasons = nullptr) {
    size_t count = 0;
    std::string error;
    ReadSpoolDirectory(
        directory, [&](uint64_t, const KeptWrite&) { ++count; },
        [&](const AsideEntry& entry) {
          if (reasons) reasons->push_back(entry.reason);
        },
        error);
    return count;
  }

  // The alarm values of a table in id order.
  static std::vector<double> Values(const std::string& table) {
    const uint32_t count = almGetAlarmCount(Token(), table.c_str());
    std::vector<AlarmRecord> rows(count + 1);
    almGetAllAlarm(Token(), table.c_str(), rows.data(), count * sizeof(AlarmRecord));
    std::vector<double> values;
    for (uint32_t i = 0; i < count; ++i) values.push_back(double{rows[i].value});
    return values;
  }

  static AlarmRecord Alarm(double value) {
    AlarmRecord alarm{};
    std::strcpy(alarm.station, "s");
    alarm.value = value;
    alarm.arisetime = 1700000000;
    return alarm;
  }
  static uint32_t Write(const std::string& table, double value) {
    const AlarmRecord alarm = Alarm(value);
    return almSetAlarm(Token(), table.c_str(), &alarm, sizeof alarm);
  }

  std::string original_, dir_;
};

TEST_P(SpoolTest, KeepsOnlyWhatCannotReachTheDatabaseAndForwardsItInOrderOnce) {
  const std::string alarms = DropAtEnd(UniqueTableName("spool_a"));
  const std::string dropped = UniqueTableName("spool_gone");
  const std::string log = DropAtEnd(UniqueTableName("spool_l"));
  DataTable samples(DropAtEnd(UniqueTableName("spool_s")), {{"v", SCADASTORE_VALUE_FLOAT}});
  for (const std::string& table : {alarms, dropped}) ASSERT_EQ(almEnsureTableExist(Token(), table.c_str()), 0u);
  ASSERT_EQ(logEnsureTableExist(Token(), log.c_str()), 0u);
  ASSERT_EQ(sgEnsureTableExist(Token(), samples.info(), nullptr, 0), 0u);
  Reach(true);
  const std::string spool = dir_ + "/spool";

  // A healthy database: written at once; a data error fails and is not kept.
  EXPECT_EQ(Write(alarms, 1), 0u);
  EXPECT_TRUE(Refused(Write(UniqueTableName("spool_missing"), 9), 1, "[alm103]"));
  EXPECT_EQ(Waiting(spool), 0u);
  std::vector<double> expected{1};
  if (sqlite()) {  // a lock held past the busy time-out
    DbConnection locker(kind());
    ASSERT_TRUE(locker.Open(("spool_up_" + dsn()).c_str(), "", ""));
    ASSERT_TRUE(locker.Execute("begin exclusive"));
    EXPECT_EQ(Write(alarms, 2), 0u) << LastError();
    EXPECT_EQ(Waiting(spool), 1u);
    locker.Execute("rollback");
    expected.push_back(2);
  }

  Reach(false);
  EXPECT_EQ(Write(alarms, 3), 0u) << LastError();
  LogRecord entry{};
  std::strcpy(entry.source, "kept");
  EXPECT_EQ(logSetLog(Token(), log.c_str(), &entry, sizeof entry), 0u) << LastError();
  RecordBuffer sample(samples.recordSize(), 1);
  sample.Put(0, 16, 5.0);
  EXPECT_EQ(sgSetRecord(Token(), samples.info(), sample.record(0), sample.bytes()), 0u);
  EXPECT_EQ(Write(dropped, 4), 0u);
  // A table dropped while its row waits.
  {
    DbConnection db(kind());
    std::stringstream fields(original_);
    std::string dsn, user, password;
    std::getline(fields, dsn, ';') && std::getline(fields, user, ';') &&
        std::getline(fields, password, ';');
    ASSERT_TRUE(db.Open(dsn.c_str(), user.c_str(), password.c_str()));
    ASSERT_TRUE(db.Execute(("drop table " + dropped).c_str()));
  }
  EXPECT_EQ(Waiting(spool), expected.size() + 3);

  // The next call forwards first; this write goes behind what waited.
  Reach(true);
  std::this_thread::sleep_for(kRetryPause);
  EXPECT_EQ(Write(alarms, 5), 0u);
  expected.insert(expected.end(), {3, 5});
  EXPECT_EQ(Values(alarms), expected);
  EXPECT_EQ(logGetLogCount(Token(), log.c_str()), 1u);
  EXPECT_EQ(sgGetRecordCount(Token(), samples.info()), 1u);
  std::vector<std::string> reasons;
  EXPECT_EQ(Waiting(spool, &reasons), 0u);
  ASSERT_EQ(reasons.size(), 1u);
  EXPECT_NE(reasons[0].find(dropped), std::string::npos) << reasons[0];
}

TEST_P(SpoolTest, UnknownOutcomesDamagedFramesAndTheDirectoryLock) {
  const std::string alarms = DropAtEnd(UniqueTableName("spool_u"));
  ASSERT_EQ(almEnsureTableExist(Token(), alarms.c_str()), 0u);
  ASSERT_EQ(Write(alarms, 1), 0u);  // id 1
  const std::string directory = dir_ + "/direct";
  const auto kept = [&](double value, uint32_t sentId) {
    const AlarmRecord alarm = Alarm(value);
    return KeptWrite{WriteFamily::kAlarm, alarms, sizeof alarm,
                     std::string(reinterpret_cast<const char*>(&alarm), sizeof alarm), sentId,
                     sentId ? 1u : 0u};
  };
  std::string error;
  {
    std::unique_ptr<Spool> spool = Spool::Open(directory, 1 << 20, error);
    ASSERT_TRUE(spool) << error;
    EXPECT_FALSE(Spool::Open(directory, 1 << 20, error));
    EXPECT_NE(error.find("in use by another process"), std::string::npos) << error;
    // Sent as id 1 and committed; sent as id 1 but not committed (another
    // value is there); sent as id 7, which is not there; two plain writes.
    for (const KeptWrite& write : {kept(1, 1), kept(2, 1), kept(3, 7), kept(4, 0), kept(5, 0)})
      ASSERT_TRUE(spool->Keep({write}, "test", error)) << error;
  }
  // The fourth frame damaged, and a torn frame after the last.
  const std::string journal = directory + "/journal";
  std::string bytes;
  {
    std::ifstream in(journal, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), {});
  }
  const size_t frame = (bytes.size() - 24) / 5;  // after the first, forwarded frame
  bytes[24 + 3 * frame + 100] ^= 0x55;
  bytes += bytes.substr(24, frame / 2);
  std::ofstream(journal, std::ios::binary) << bytes;

  std::unique_ptr<Spool> spool = Spool::Open(directory, 1 << 20, error);
  ASSERT_TRUE(spool) << error;
  EXPECT_EQ(std::filesystem::file_size(journal), bytes.size() - frame / 2);
  spool->Forward(std::chrono::seconds(10));
  EXPECT_FALSE(spool->Holds());
  EXPECT_EQ(Values(alarms), (std::vector<double>{1, 2, 3, 5}));
  std::vector<std::string> reasons;
  Waiting(directory, &reasons);
  ASSERT_EQ(reasons.size(), 1u);
  EXPECT_NE(reasons[0].find("damaged frame"), std::string::npos) << reasons[0];
}

INSTANTIATE_TEST_SUITE_P(Databases, SpoolTest, ::testing::ValuesIn(Databases({3})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
