// The alm* exports against every database: ids, writing, reading, queries,
// counts and the coded failures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/sql_text.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

constexpr uint32_t kSize = sizeof(AlarmRecord);

AlarmRecord Alarm(const char* station, const char* tag, uint32_t arisetime,
                  uint32_t alarmtype = 1, uint32_t level = 1, uint32_t tagtype = 0) {
  AlarmRecord record{};
  std::strncpy(record.station, station, sizeof record.station - 1);
  std::strncpy(record.tag, tag, sizeof record.tag - 1);
  record.tagtype = tagtype;
  record.value = 25.5;
  record.alarmtype = alarmtype;
  record.arisetime = arisetime;
  record.ip = 0x0A000001;  // the integer column is signed on the servers
  std::strcpy(record.description, "level high");
  record.millisecond = 250;
  std::strcpy(record.batch, "batch-1");
  record.alarmlevel = level;
  return record;
}

std::string LastError() { return dbGetLastError(); }

class AlarmTest : public DatabaseTest {
 protected:
  std::string NewTable() {
    std::string table = DropAtEnd(UniqueTableName("alm"));
    EXPECT_EQ(almEnsureTableExist(Token(), table.c_str()), 0u);
    return table;
  }

  // A statement of the test's own in the database's dialect; every %s is the table.
  std::string Sql(const char* backtickTemplate, const std::string& table) {
    return FormatStatement(DialectOf(kind()), 1024, backtickTemplate, table.c_str(),
                           table.c_str());
  }
  uint32_t Run(const std::string& table, const std::string& sql) {
    return almDeleteAlarm(Token(), table.c_str(), sql.c_str());
  }

  uint32_t Store(const std::string& table, const std::vector<AlarmRecord>& records) {
    return almSetAlarm(Token(), table.c_str(), records.data(),
                       static_cast<uint32_t>(records.size() * kSize));
  }

  // almGetAllAlarm with room for `room` records; the buffer starts dirty.
  std::vector<AlarmRecord> ReadAll(const std::string& table, uint32_t room) {
    std::vector<AlarmRecord> records(room);
    std::memset(records.data(), 0xAB, room * kSize);
    EXPECT_EQ(almGetAllAlarm(Token(), table.c_str(), records.data(), room * kSize), 0u)
        << LastError();
    return records;
  }

  // Ids that a query returns; the query is its head plus the four lists.
  std::vector<uint32_t> QueryIds(const std::string& table, uint32_t start, uint32_t end,
                                 uint32_t filter, std::vector<int32_t> types = {},
                                 std::vector<std::string> stations = {},
                                 std::vector<std::string> tags = {},
                                 std::vector<PointKey> points = {}) {
    AlarmQuery head{start, end, 0, filter, uint32_t(types.size()), uint32_t(stations.size()),
                    uint32_t(tags.size()), uint32_t(points.size())};
    std::vector<unsigned char> query(reinterpret_cast<unsigned char*>(&head),
                                     reinterpret_cast<unsigned char*>(&head + 1));
    auto append = [&](const void* data, size_t size) {
      query.insert(query.end(), static_cast<const unsigned char*>(data),
                   static_cast<const unsigned char*>(data) + size);
    };
    for (int32_t type : types) append(&type, 4);
    for (const auto* list : {&stations, &tags})
      for (const std::string& name : *list) {
        char field[32] = {};
        std::strncpy(field, name.c_str(), sizeof field - 1);
        append(field, sizeof field);
      }
    for (const PointKey& point : points) append(&point, sizeof point);

    AlarmRecord* block = nullptr;
    uint32_t size = 12345;
    EXPECT_EQ(almGetAlarmByQuery(Token(), table.c_str(),
                                 reinterpret_cast<const AlarmQuery*>(query.data()), &block, &size),
              0u) << LastError();
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < size / kSize; ++i) ids.push_back(block[i].id);
    EXPECT_EQ(size % kSize, 0u);
    EXPECT_EQ(block == nullptr, size == 0);
    std::free(block);
    return ids;
  }

  bool IsMariadb() const { return GetParam().name.rfind("Mariadb", 0) == 0; }
};

TEST_P(AlarmTest, IdsFollowTheLargestAndWholeRecordsAreStored) {
  const std::string table = NewTable();
  EXPECT_EQ(almEnsureTableExist(Token(), table.c_str()), 0u);  // exists: accepted as it is
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 0u);
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 0u);

  ASSERT_EQ(Store(table, {Alarm("s", "t", 1)}), 0u) << LastError();
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 1u);
  ASSERT_EQ(Run(table, Sql("update `%s` set `id`=41", table)), 0u) << LastError();

  // Three records and 100 bytes more: the remainder is ignored.
  std::vector<AlarmRecord> three = {Alarm("a", "t", 2), Alarm("b", "t", 3), Alarm("c", "t", 4)};
  std::vector<unsigned char> buffer(3 * kSize + 100, 0xEE);
  std::memcpy(buffer.data(), three.data(), 3 * kSize);
  ASSERT_EQ(almSetAlarm(Token(), table.c_str(), reinterpret_cast<AlarmRecord*>(buffer.data()),
                        3 * kSize + 100), 0u) << LastError();
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 44u);
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 4u);
  std::vector<AlarmRecord> read = ReadAll(table, 4);
  EXPECT_EQ(read[1].id, 42u);
  EXPECT_STREQ(read[3].station, "c");
  EXPECT_EQ(read[3].id, 44u);
}

TEST_P(AlarmTest, ARejectedInsertKeepsEarlierRecordsAndStopsTheBatch) {
  const std::string table = NewTable();
  ASSERT_EQ(Run(table, Sql("create unique index `uq_%s` on `%s` (`station`)", table)), 0u)
      << LastError();
  ASSERT_EQ(Store(table, {Alarm("dup", "t", 1)}), 0u) << LastError();

  EXPECT_EQ(Store(table, {Alarm("first", "t", 2), Alarm("dup", "t", 3), Alarm("third", "t", 4)}),
            1u);
  const std::string error = LastError();
  EXPECT_EQ(error.rfind("[alm104] exec error: ", 0), 0u) << error;
  EXPECT_NE(error.find(", sql: insert into "), std::string::npos) << error;
  EXPECT_NE(error.find("values(3, 'dup'"), std::string::npos) << error;
  std::vector<AlarmRecord> read = ReadAll(table, 4);
  EXPECT_STREQ(read[1].station, "first");
  EXPECT_EQ(read[2].id, 0u);  // the third was not tried
  EXPECT_EQ(almGetLastID(Token(), table.c_str()), 2u);
}

TEST_P(AlarmTest, RecordsComeBackFieldByFieldWithinTheCallersRoom) {
  const std::string table = NewTable();
  std::vector<AlarmRecord> empty = ReadAll(table, 2);
  EXPECT_EQ(std::vector<unsigned char>(2 * kSize, 0),
            std::vector<unsigned char>(reinterpret_cast<unsigned char*>(empty.data()),
                                       reinterpret_cast<unsigned char*>(empty.data()) + 2 * kSize));

  AlarmRecord full = Alarm("station-1", "tag-1", 1700000000, 7, 3);
  full.value = 0.1;
  full.status = 2;
  full.recovertime = 1700000060;
  full.ip = 2130706433;
  std::memset(full.reserved, 0x5A, sizeof full.reserved);
  ASSERT_EQ(Store(table, {full, Alarm("s2", "t2", 2), Alarm("s3", "t3", 3)}), 0u) << LastError();

  std::vector<AlarmRecord> read = ReadAll(table, 10);
  const AlarmRecord& first = read[0];
  EXPECT_EQ(first.id, 1u);
  EXPECT_STREQ(first.station, "station-1");
  EXPECT_STREQ(first.tag, "tag-1");
  EXPECT_EQ(static_cast<float>(first.value), 0.1f);
  EXPECT_EQ(first.alarmtype, 7u);
  EXPECT_EQ(first.status, 2u);
  EXPECT_EQ(first.confirmed, 1u);
  EXPECT_EQ(first.arisetime, 1700000000u);
  EXPECT_EQ(first.ip, 2130706433u);
  EXPECT_STREQ(first.description, "level high");
  EXPECT_EQ(first.millisecond, 250u);
  EXPECT_EQ(first.recovertime, 1700000060u);
  EXPECT_STREQ(first.batch, "batch-1");
  EXPECT_EQ(first.alarmlevel, 3u);
  EXPECT_EQ(read[1].confirmed, 0u);
  EXPECT_STREQ(read[2].station, "s3");
  const auto* bytes = reinterpret_cast<const unsigned char*>(read.data());
  for (size_t i = 3 * kSize - sizeof full.reserved; i < 10 * kSize; ++i)
    ASSERT_EQ(bytes[i], 0) << "byte " << i;  // reserved bytes and unused records

  // Room for two records and 363 bytes: the two lowest ids, every byte cleared.
  std::vector<unsigned char> room(2 * kSize + 363, 0xAB);
  ASSERT_EQ(almGetAllAlarm(Token(), table.c_str(), reinterpret_cast<AlarmRecord*>(room.data()),
                           2 * kSize + 363), 0u);
  EXPECT_EQ(reinterpret_cast<AlarmRecord*>(room.data())[1].id, 2u);
  EXPECT_EQ(std::vector<unsigned char>(363, 0),
            std::vector<unsigned char>(room.begin() + 2 * kSize, room.end()));
}

TEST_P(AlarmTest, FlagValuesQuotesAndNullValues) {
  const std::string table = NewTable();
  AlarmRecord quoted = Alarm("o'brien", "back\\slash", 1);
  std::strcpy(quoted.description, "it's 'quoted' \\n");
  AlarmRecord flag = Alarm("s", "flag", 2, 1, 1, 4);
  std::memset(&flag.value, 0xFF, sizeof flag.value);
  reinterpret_cast<unsigned char*>(&flag.value)[0] = 5;
  ASSERT_EQ(Store(table, {quoted, Alarm("s", "null", 3), flag}), 0u) << LastError();
  ASSERT_EQ(Run(table, Sql("update `%s` set `value`=NULL where `id`=2", table)), 0u);

  std::vector<AlarmRecord> read = ReadAll(table, 3);
  EXPECT_STREQ(read[0].station, "o'brien");
  EXPECT_STREQ(read[0].tag, "back\\slash");
  EXPECT_STREQ(read[0].description, "it's 'quoted' \\n");
  EXPECT_EQ(double{read[1].value}, double{read[0].value});  // a NULL repeats the row before
  const unsigned char one[8] = {1, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(&read[2].value, one, 8), 0);

  // The flag byte was stored as the number 5.
  ASSERT_EQ(Run(table, Sql("update `%s` set `tagtype`=0 where `id`=3", table)), 0u);
  EXPECT_EQ(double{ReadAll(table, 3)[2].value}, 5.0);
  EXPECT_EQ(QueryIds(table, 0, 10, 2, {}, {"o'brien"}), std::vector<uint32_t>{1});
}

TEST_P(AlarmTest, QueriesReturnExactlyTheMatchingRows) {
  const std::string table = NewTable();
  ASSERT_EQ(Store(table, {Alarm("n", "a", 100, 1, 1), Alarm("n", "b", 150, 2, 2),
                          Alarm("s", "a", 200, 3, 3, 9), Alarm("s", "b", 250, 1, 4),
                          Alarm("w", "a", 300, 5, 2, 65535)}), 0u) << LastError();
  using Ids = std::vector<uint32_t>;
  EXPECT_EQ(QueryIds(table, 150, 250, 0), (Ids{2, 3, 4}));
  EXPECT_EQ(QueryIds(table, 250, 150, 0), Ids{});
  EXPECT_EQ(QueryIds(table, 0, 1000, 3 << 8), (Ids{3, 4}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 8, {1}), (Ids{1, 4}));
  // Stored with "%u", an all-ones type is beyond the servers' integer; the
  // query's -1 then matches nothing.
  EXPECT_EQ(QueryIds(table, 0, 1000, 8 | (2 << 8), {1, 3, -1}), (Ids{3, 4}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 2, {}, {"s", "w"}), (Ids{3, 4, 5}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 8 | 2, {}, {"s"}), (Ids{1, 2, 3, 4, 5}));  // types decide
  EXPECT_EQ(QueryIds(table, 0, 1000, 4, {}, {"n"}, {"b"}), (Ids{2}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 4, {}, {"s"}, {"a", "b"}), (Ids{3, 4}));
  PointKey sa{"s", "a", 9}, wa{"w", "a", 65535}, wrongType{"n", "a", 9};
  EXPECT_EQ(QueryIds(table, 0, 1000, 16, {}, {}, {}, {sa, wa}), (Ids{3, 5}));
  EXPECT_EQ(QueryIds(table, 0, 1000, 16, {}, {}, {}, {wrongType}), Ids{});
}

TEST_P(AlarmTest, ConfirmRecoverAndDelete) {
  const std::string table = NewTable();
  const std::string other = NewTable();
  ASSERT_EQ(Store(table, {Alarm("s", "t", 1), Alarm("s", "t", 2)}), 0u);
  ASSERT_EQ(Store(other, {Alarm("s", "t", 1), Alarm("s", "t", 2)}), 0u);

  EXPECT_EQ(almConfirmAlarm(Token(), table.c_str(), 2, 3), 0u) << LastError();
  EXPECT_EQ(almSetRecoverAlarm(Token(), table.c_str(), 2, 99), 0u) << LastError();
  AlarmRecord second = ReadAll(table, 2)[1];
  EXPECT_EQ(second.status, 3u);
  EXPECT_EQ(second.confirmed, 1u);
  EXPECT_EQ(second.recovertime, 99u);
  EXPECT_EQ(almConfirmAlarm(Token(), table.c_str(), 2, 0), 0u);
  EXPECT_EQ(ReadAll(table, 2)[1].confirmed, 0u);

  // An update that matches no row: MariaDB answers success, the others no-data.
  const uint32_t missing = IsMariadb() ? 0 : 1;
  EXPECT_EQ(almConfirmAlarm(Token(), table.c_str(), 77, 1), missing);
  if (missing) {
    EXPECT_EQ(LastError().rfind("[alm503] exec error: ", 0), 0u) << LastError();
  }
  EXPECT_EQ(almSetRecoverAlarm(Token(), table.c_str(), 77, 1), missing);
  if (missing) {
    EXPECT_EQ(LastError().rfind("[alm803] exec error: ", 0), 0u) << LastError();
  }

  // The statement runs as given, whatever table it names.
  EXPECT_EQ(Run(table, Sql("delete from `%s` where `id`=1", other)), 0u) << LastError();
  EXPECT_EQ(almGetAlarmCount(Token(), other.c_str()), 1u);
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 2u);
  EXPECT_EQ(Run(table, "delete frm nowhere"), 1u);
  EXPECT_EQ(LastError().rfind("[alm603] exec error: ", 0), 0u) << LastError();
  EXPECT_NE(LastError().find(", sql: delete frm nowhere"), std::string::npos) << LastError();
}

TEST_P(AlarmTest, MissingTablesAndBadArguments) {
  const std::string missing = UniqueTableName("alm_missing");
  const std::string table = NewTable();
  AlarmRecord* block = reinterpret_cast<AlarmRecord*>(0x1234);
  uint32_t size = 99;
  AlarmQuery query{0, 10, 0, 0, 0, 0, 0, 0};

  EXPECT_EQ(almGetAlarmCount(Token(), missing.c_str()), 0u);
  EXPECT_EQ(LastError().rfind("[alm403] failed to open table: select count(*) from ", 0), 0u);
  EXPECT_EQ(almGetLastID(Token(), missing.c_str()), 0u);
  EXPECT_EQ(LastError().rfind("[alm703] failed to open table: select max(", 0), 0u);
  EXPECT_EQ(almGetAlarmByQuery(Token(), missing.c_str(), &query, &block, &size), 1u);
  EXPECT_EQ(LastError().rfind("[alm303] failed to open table: select * from ", 0), 0u);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(block, reinterpret_cast<AlarmRecord*>(0x1234));
  AlarmRecord untouched;
  std::memset(&untouched, 0xAB, kSize);
  EXPECT_EQ(almGetAllAlarm(Token(), missing.c_str(), &untouched, kSize), 1u);
  EXPECT_EQ(LastError().rfind("[alm203] failed to open table: ", 0), 0u);
  EXPECT_EQ(untouched.id, 0xABABABABu);
  EXPECT_EQ(almSetAlarm(Token(), missing.c_str(), &untouched, kSize), 1u);
  EXPECT_EQ(LastError().rfind("[alm103] failed to open table: ", 0), 0u);

  // Successes and almEnsureTableExist leave the last text alone.
  EXPECT_EQ(almGetLastID(nullptr, table.c_str()), 0u);
  EXPECT_EQ(LastError(), "[alm701] invalid parameter");
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 0u);
  EXPECT_EQ(almGetAlarmByQuery(Token(), table.c_str(), &query, &block, &size), 0u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(almEnsureTableExist(Token(), "no'such table"), 0u);  // rejected create
  EXPECT_EQ(LastError(), "[alm701] invalid parameter");

  EXPECT_EQ(almGetAlarmByQuery(Token(), table.c_str(), &query, nullptr, &size), 1u);
  EXPECT_EQ(LastError(), "[alm301] invalid parameter");
  EXPECT_EQ(almConfirmAlarm(Token(), table.c_str(), 0, 1), 1u);
  EXPECT_EQ(LastError(), "[alm501] invalid parameter");

  // Arguments are checked before any connection is tried.
  ASSERT_NE(dbInitialize("no_such_dsn;;;1"), 0u);
  EXPECT_EQ(almSetAlarm(Token(), table.c_str(), &untouched, kSize - 1), 1u);
  EXPECT_EQ(LastError(), "[alm101] invalid parameter");
  EXPECT_EQ(almGetAlarmCount(Token(), table.c_str()), 0u);
  EXPECT_EQ(LastError(), "[alm402] failed to open DSN: no_such_dsn");
  EXPECT_EQ(almEnsureTableExist(Token(), table.c_str()), 1u);
}

TEST_P(AlarmTest, IndexIsCreatedExceptUnderKind4) {
  const std::string table = NewTable();
  const char* drop = kind() == 2 ? "drop index `idx_%s` on `%s`" : "drop index `idx_%s`";
  EXPECT_EQ(Run(table, Sql(drop, table)), kind() == 4 ? 1u : 0u) << LastError();
}

INSTANTIATE_TEST_SUITE_P(Databases, AlarmTest, ::testing::ValuesIn(Databases({1, 4, 6})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
