// Store and forward on each database: what is kept and what is not, the
// order and uniqueness of what is forwarded, rows the database refuses,
// inserts of unknown outcome, and a damaged journal. The database is taken
// away by pointing the library at a data source on nothing (a closed port, a
// SQLite file in a missing directory) or by locking the SQLite file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
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
    dir_ = (std::filesystem::temp_directory_path() / UniqueTableName("scadastore_spool")).string();
    std::filesystem::create_directory(dir_);
  }
  void TearDown() override {
    if (!dir_.empty()) {
      dbInitialize(original_.c_str());
      std::filesystem::remove_all(dir_);
    }
    DatabaseTest::TearDown();
  }

  // The library's settings name the database, or a data source of the same
  // driver on nothing (a closed port, a file in a missing directory), with
  // the same spool.
  void Reach(bool reachable) {
    std::string config = original_ + ";spool=" + dir_ + "/spool";
    if (!reachable)
      config.replace(0, config.find(';'),
                     GetParam().sqlite() ? "scadastore_sqlite_missing"
                     : kind() == 2       ? "scadastore_maria_blackhole"
                                         : "scadastore_blackhole");
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
  const std::string log = DropAtEnd(UniqueTableName("spool_l"));
  const std::string gone = UniqueTableName("spool_gone");
  DataTable samples(DropAtEnd(UniqueTableName("spool_s")), {{"v", SCADASTORE_VALUE_FLOAT}});
  ASSERT_EQ(almEnsureTableExist(Token(), alarms.c_str()), 0u);
  ASSERT_EQ(logEnsureTableExist(Token(), log.c_str()), 0u);
  ASSERT_EQ(sgEnsureTableExist(Token(), samples.info(), nullptr, 0), 0u);
  Reach(true);
  const std::string spool = dir_ + "/spool";

  // A healthy database: written at once; a data error fails and is not kept.
  EXPECT_EQ(Write(alarms, 1), 0u);
  EXPECT_TRUE(Refused(Write(gone, 9), 1, "[alm103]"));
  EXPECT_EQ(Waiting(spool), 0u);
  std::vector<double> expected{1};
  if (GetParam().sqlite()) {  // a lock held past the busy time-out
    DbConnection locker(kind());
    ASSERT_TRUE(locker.Open(original_.substr(0, original_.find(';')).c_str(), "", ""));
    ASSERT_TRUE(locker.Execute("begin exclusive"));
    EXPECT_EQ(Write(alarms, 2), 0u) << LastError();
    EXPECT_EQ(Waiting(spool), 1u);
    locker.Execute("rollback");
    expected.push_back(2);
  }

  // Kept: two alarms with other tables' writes between them, and an alarm
  // for a table that is not there when it is forwarded.
  Reach(false);
  EXPECT_EQ(Write(alarms, 3), 0u) << LastError();
  LogRecord entry{};
  std::strcpy(entry.source, "kept");
  EXPECT_EQ(logSetLog(Token(), log.c_str(), &entry, sizeof entry), 0u) << LastError();
  RecordBuffer sample(samples.recordSize(), 1);
  sample.Put(0, 16, 5.0);
  EXPECT_EQ(sgSetRecord(Token(), samples.info(), sample.record(0), sample.bytes()), 0u);
  EXPECT_EQ(Write(alarms, 4), 0u);
  EXPECT_EQ(Write(gone, 9), 0u);
  EXPECT_EQ(Waiting(spool), expected.size() + 4);

  // The next call forwards first; this write goes behind what waited.
  Reach(true);
  std::this_thread::sleep_for(kRetryPause);
  EXPECT_EQ(Write(alarms, 5), 0u);
  expected.insert(expected.end(), {3, 4, 5});
  EXPECT_EQ(Values(alarms), expected);
  EXPECT_EQ(logGetLogCount(Token(), log.c_str()), 1u);
  EXPECT_EQ(sgGetRecordCount(Token(), samples.info()), 1u);
  std::vector<std::string> reasons;
  EXPECT_EQ(Waiting(spool, &reasons), 0u);
  ASSERT_EQ(reasons.size(), 1u);
  EXPECT_NE(reasons[0].find(gone), std::string::npos) << reasons[0];
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
