// The alm* exports against every database: ids, writing, reading, queries,
// counts and the coded failures.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/sql_text.h"
#include "support/alarm_query.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

constexpr uint32_t kSize = sizeof(AlarmRecord);
using Ids = std::vector<uint32_t>;

// The integer ip column is signed on the servers, hence an ip below 2^31.
AlarmRecord Alarm(const char* station, const char* tag, uint32_t arisetime,
                  uint32_t alarmtype = 1, uint32_t level = 1, uint32_t tagtype = 0) {
  AlarmRecord record{0, {}, {}, tagtype, 25.5, alarmtype, 0, arisetime, 0x0A000001, 0,
                     "level high", 250, 0, "batch-1", level, {}};
  std::strncpy(record.station, station, sizeof record.station - 1);
  std::strncpy(record.tag, tag, sizeof record.tag - 1);
  return record;
}

class AlarmTest : public DatabaseTest {
 protected:
  std::string NewTable() {
    std::string table = DropAtEnd(UniqueTableName("alm"));
    EXPECT_EQ(almEnsureTableExist(Token(), table.c_str()), 0u);
    return table;
  }
  // Runs a statement of the test's own, in the database's dialect, through `table`'s
  // almDeleteAlarm; every %s is `named`, by default the same table.
  uint32_t Run(const std::string& table, const char* backtickTemplate, std::string named = {}) {
    if (named.empty()) named = table;
    const std::string sql = FormatStatement(DialectOf(kind()), 1024, backtickTemplate,
                                            named.c_str(), named.c_str()).text;
    return almDeleteAlarm(Token(), table.c_str(), sql.c_str());
  }
  uint32_t Store(const std::string& table, const std::vector<AlarmRecord>& records) {
    return almSetAlarm(Token(), table.c_str(), records.data(), uint32_t(records.size() * kSize));
  }
  // almGetAllAlarm with room for `room` records; the buffer starts dirty.
  std::vector<AlarmRecord> ReadAll(const std::string& table, uint32_t room) {
    std::vector<AlarmRecord> records(room);
    std::memset(records.data(), 0xAB, room * kSize);
    EXPECT_EQ(almGetAllAlarm(Token(), table.c_str(), records.data(), room * kSize), 0u)
        << LastError();
    return records;
  }
  // Ids that a query returns.
  Ids QueryIds(const std::string& table, uint32_t start, uint32_t end, uint32_t filter,
               const AlarmLists& lists = {}) {
    const std::string query = AlarmQueryBytes(start, end, filter, lists);
    AlarmRecord* block = nullptr;
    uint32_t size = 12345;
    EXPECT_EQ(almGetAlarmByQuery(Token(), table.c_str(),
                                 reinterpret_cast<const AlarmQuery*>(query.data()), &block, &size),
              0u) << LastError();
    EXPECT_EQ(size % kSize, 0u);
    EXPECT_EQ(block == nullptr, size == 0);
    Ids ids;
    for (uint32_t i = 0; i < size / kSize; ++i) ids.push_back(block[i].id);
    FreeResultBlock(block);
    return ids;
  }
};

TEST_P(AlarmTest, NewTableIndexesIdsAndWholeRecordsStored) {
  const std::string table = NewTable();
  const char* dropIndex = kind() == 2 ? "drop index `idx_%s` on `%s`" : "drop index `idx_%s`";
  const std::string dropTimeIndex = DropTimeIndexSql(kind(), table);
  EXPECT_EQ(Run(table, dropIndex), kind() == 4 ? 1u : 0u) << LastError();  // none under kind 4
  EXPECT_EQ(almDeleteAlarm(Token(), table.c_str(), dropTimeIndex.c_str()), kind() == 4 ? 1u : 0u)
      << LastError();
  // An existing table is accepted as it is: no index comes back.
  EXPECT_EQ(almEnsureTableExist(Token(), table.c_str()), 0u);
  EXPECT_EQ(almDeleteAlarm(Token(), table.c_str(), dropTimeIndex.c_str()), 1u);
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 0u);
  ASSERT_EQ(Store(table, {Alarm("s", "t", 1)}), 0u) << LastError();
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 1u);
  ASSERT_EQ(Run(table, "update `%s` set `id`=41"), 0u) << LastError();

  // Three records and 100 bytes more: the remainder is ignored.
  std::vector<AlarmRecord> buffer = {Alarm("a", "t", 2), Alarm("b", "t", 3), Alarm("c", "t", 4),
                                     {}};
  std::memset(&buffer[3], 0xEE, 100);
  ASSERT_EQ(almSetAlarm(Token(), table.c_str(), buffer.data(), 3 * kSize + 100), 0u)
      << LastError();
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 44u);
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 4u);
  std::vector<AlarmRecord> read = ReadAll(table, 4);
  EXPECT_EQ(read[1].id, 42u);
  EXPECT_STREQ(read[3].station, "c");
}

TEST_P(AlarmTest, ARejectedInsertKeepsEarlierRecordsAndStopsTheBatch) {
  const std::string table = NewTable();
  ASSERT_EQ(Run(table, "create unique index `uq_%s` on `%s` (`station`)"), 0u) << LastError();
  ASSERT_EQ(Store(table, {Alarm("dup", "t", 1)}), 0u) << LastError();

  EXPECT_TRUE(
      Refused(Store(table, {Alarm("first", "t", 2), Alarm("dup", "t", 3), Alarm("third", "t", 4)}),
              1, "[alm104] exec error: "));
  const std::string error = LastError();
  EXPECT_NE(error.find(", sql: insert into "), std::string::npos) << error;
  EXPECT_NE(error.find("values(3, 'dup'"), std::string::npos) << error;
  EXPECT_STREQ(ReadAll(table, 4)[1].station, "first");
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 2u);  // the third was not tried
}

TEST_P(AlarmTest, RecordsComeBackWholeWithinTheCallersRoom) {
  const std::string table = NewTable();
  EXPECT_TRUE(AllBytesAre(0, ReadAll(table, 2).data(), 2 * kSize));

  // Read back as stored, with confirmed from status and the reserved bytes cleared.
  AlarmRecord full{1, "station-1", "tag-1", 0, 0.1, 7, 1, 1700000000, 2130706433, 2,
                   "level high", 250, 1700000060, "batch-1", 3, {}};
  AlarmRecord written = full;
  std::memset(written.reserved, 0x5A, sizeof written.reserved);
  ASSERT_EQ(Store(table, {written, Alarm("s2", "t2", 2), Alarm("s3", "t3", 3)}), 0u)
      << LastError();
  std::vector<AlarmRecord> read = ReadAll(table, 10);
  EXPECT_EQ(static_cast<float>(read[0].value), 0.1f);  // single precision on MariaDB
  full.value = read[0].value;
  EXPECT_EQ(std::memcmp(&read[0], &full, kSize), 0);
  EXPECT_EQ(read[1].confirmed, 0u);
  EXPECT_STREQ(read[2].station, "s3");
  // Its reserved bytes and the unused records.
  EXPECT_TRUE(AllBytesAre(0, read[2].reserved, sizeof read[2].reserved + 7 * kSize));

  // Room for two records and 363 bytes: the two lowest ids, every byte cleared.
  std::vector<unsigned char> room(2 * kSize + 363, 0xAB);
  auto* records = reinterpret_cast<AlarmRecord*>(room.data());
  ASSERT_EQ(almGetAllAlarm(Token(), table.c_str(), records, 2 * kSize + 363), 0u);
  EXPECT_EQ(records[1].id, 2u);
  EXPECT_TRUE(AllBytesAre(0, room.data() + 2 * kSize, 363));
}

// Texts of every kind are in hostile_input_test.
TEST_P(AlarmTest, FlagAndNullValues) {
  const std::string table = NewTable();
  AlarmRecord flag = Alarm("s", "flag", 2, 1, 1, 4);
  std::memset(&flag.value, 0xFF, sizeof flag.value);
  reinterpret_cast<unsigned char*>(&flag.value)[0] = 5;
  ASSERT_EQ(Store(table, {Alarm("s", "t", 1), Alarm("s", "null", 3), flag}), 0u) << LastError();
  ASSERT_EQ(Run(table, "update `%s` set `value`=NULL where `id`=2"), 0u);

  std::vector<AlarmRecord> read = ReadAll(table, 3);
  EXPECT_EQ(double{read[1].value}, double{read[0].value});  // a NULL repeats the row before
  const unsigned char one[8] = {1, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(&read[2].value, one, 8), 0);

  // The flag byte was stored as the number 5.
  ASSERT_EQ(Run(table, "update `%s` set `tagtype`=0 where `id`=3"), 0u);
  EXPECT_EQ(double{ReadAll(table, 3)[2].value}, 5.0);
}

TEST_P(AlarmTest, QueriesReturnExactlyTheMatchingRows) {
  const std::string table = NewTable();
  ASSERT_EQ(Store(table, {Alarm("n", "a", 100, 1, 1), Alarm("n", "b", 150, 2, 2),
                          Alarm("s", "a", 200, 3, 3, 9), Alarm("s", "b", 250, 1, 4),
                          Alarm("w", "a", 300, 5, 2, 65535)}), 0u) << LastError();
  EXPECT_EQ(QueryIds(table, 150, 250, 0), (Ids{2, 3, 4}));
  EXPECT_EQ(QueryIds(table, 250, 150, 0), Ids{});
  EXPECT_EQ(QueryIds(table, 0, 1000, 3 << 8), (Ids{3, 4}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 8, {.types = {1}}), (Ids{1, 4}));
  // Stored with "%u", an all-ones type is beyond the servers' integer; the
  // query's -1 then matches nothing.
  EXPECT_EQ(QueryIds(table, 0, 1000, 8 | (2 << 8), {.types = {1, 3, -1}}), (Ids{3, 4}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 2, {.stations = {"s", "w"}}), (Ids{3, 4, 5}));
  // The types decide.
  EXPECT_EQ(QueryIds(table, 0, 1000, 8 | 2, {.stations = {"s"}}), (Ids{1, 2, 3, 4, 5}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 4, {.stations = {"n"}, .tags = {"b"}}), (Ids{2}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 4, {.stations = {"s"}, .tags = {"a", "b"}}), (Ids{3, 4}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 16, {.points = {Point("s", "a", 9), Point("w", "a", 65535)}}),
            (Ids{3, 5}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 16, {.points = {Point("n", "a", 9)}}), Ids{});
}

TEST_P(AlarmTest, ConfirmRecoverAndDelete) {
  const std::string table = NewTable(), other = NewTable();
  ASSERT_EQ(Store(table, {Alarm("s", "t", 1), Alarm("s", "t", 2)}), 0u);
  ASSERT_EQ(Store(other, {Alarm("s", "t", 1), Alarm("s", "t", 2)}), 0u);

  EXPECT_EQ(almConfirmAlarm(Token(), table.c_str(), 2, 3), 0u) << LastError();
  EXPECT_EQ(almSetRecoverAlarm(Token(), table.c_str(), 2, 99), 0u) << LastError();
  AlarmRecord second = ReadAll(table, 2)[1];
  EXPECT_EQ(second.status, 3u);
  EXPECT_EQ(second.recovertime, 99u);

  // An update that matches no row: MariaDB answers success, the others no-data.
  const bool mariadb = GetParam().name.rfind("Mariadb", 0) == 0;
  EXPECT_TRUE(Refused(almConfirmAlarm(Token(), table.c_str(), 77, 1), mariadb ? 0 : 1,
                      mariadb ? "" : "[alm503] exec error: "));
  EXPECT_TRUE(Refused(almSetRecoverAlarm(Token(), table.c_str(), 77, 1), mariadb ? 0 : 1,
                      mariadb ? "" : "[alm803] exec error: "));

  // The statement runs as given, whatever table it names.
  EXPECT_EQ(Run(table, "delete from `%s` where `id`=1", other), 0u) << LastError();
  EXPECT_EQ(almGetAlarmCount(Token(), other.c_str()), 1u);
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 2u);
  EXPECT_TRUE(Refused(almDeleteAlarm(Token(), table.c_str(), "delete frm nowhere"), 1,
                      "[alm603] exec error: "));
  EXPECT_NE(LastError().find(", sql: delete frm nowhere"), std::string::npos) << LastError();
}

TEST_P(AlarmTest, MissingTablesAndBadArguments) {
  const std::string missing = UniqueTableName("alm_missing"), table = NewTable();
  AlarmRecord* block = reinterpret_cast<AlarmRecord*>(0x1234);
  uint32_t size = 99;
  AlarmQuery query{0, 10, 0, 0, 0, 0, 0, 0};
  AlarmRecord untouched;
  std::memset(&untouched, 0xAB, kSize);

  EXPECT_TRUE(Refused(almGetAlarmCount(Token(), missing.c_str()), 0,
                      "[alm403] failed to open table: select count(*) from "));
  EXPECT_TRUE(Refused(almGetLastID(Token(), missing.c_str()), 0,
                      "[alm703] failed to open table: select max("));
  EXPECT_TRUE(Refused(almGetAlarmByQuery(Token(), missing.c_str(), &query, &block, &size), 1,
                      "[alm303] failed to open table: select * from "));
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(block, reinterpret_cast<AlarmRecord*>(0x1234));
  EXPECT_TRUE(Refused(almGetAllAlarm(Token(), missing.c_str(), &untouched, kSize), 1,
                      "[alm203] failed to open table: "));
  EXPECT_EQ(untouched.id, 0xABABABABu);
  // Its texts have no NUL: refused before the missing table is met.
  EXPECT_TRUE(Refused(almSetAlarm(Token(), missing.c_str(), &untouched, kSize), 1,
                      "[alm101] invalid parameter"));

  // Successes and almEnsureTableExist leave the last text alone.
  EXPECT_EQ(almConfirmAlarm(Token(), table.c_str(), 0, 1), 1u);
  EXPECT_EQ(LastError(), "[alm501] invalid parameter");
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 0u);
  EXPECT_EQ(almEnsureTableExist(Token(), "no'such table"), 0u);  // rejected create
  EXPECT_EQ(LastError(), "[alm501] invalid parameter");
  EXPECT_EQ(almGetAlarmByQuery(Token(), table.c_str(), &query, nullptr, &size), 1u);
  EXPECT_EQ(LastError(), "[alm301] invalid parameter");

  // Arguments are checked before any connection is tried.
  ASSERT_NE(dbInitialize("no_such_dsn;;;1"), 0u);
  EXPECT_EQ(almSetAlarm(Token(), table.c_str(), &untouched, kSize - 1), 1u);
  EXPECT_EQ(LastError(), "[alm101] invalid parameter");
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 0u);
  EXPECT_EQ(LastError(), "[alm402] failed to open DSN: no_such_dsn");
  EXPECT_EQ(almEnsureTableExist(Token(), table.c_str()), 1u);
}

INSTANTIATE_TEST_SUITE_P(Databases, AlarmTest, ::testing::ValuesIn(Databases({1, 4, 6})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
