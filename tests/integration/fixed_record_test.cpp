// The alarm and log exports on every database: the bodies both families share
// run over family x database, then each family's own exports.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "support/alarm_query.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

using Ids = std::vector<uint32_t>;
constexpr uint32_t kAfter2038 = 2147483748u, kLast = 4294967295u;

AlarmRecord Alarm(const char* station, const char* tag, uint32_t arisetime,
                  uint32_t alarmtype = 1, uint32_t level = 1, uint32_t tagtype = 0) {
  AlarmRecord record{0, {}, {}, tagtype, 25.5, alarmtype, 0, arisetime, 0x0A000001, 0,
                     "level high", 250, 0, "batch-1", level, {}};
  std::strncpy(record.station, station, sizeof record.station - 1);
  std::strncpy(record.tag, tag, sizeof record.tag - 1);
  return record;
}

// An entry whose own id (500 - logtime) the store ignores.
LogRecord Entry(uint32_t logtime, const char* source = "") {
  LogRecord record{500 - logtime, logtime, logtime % 1000, 0, "", "entry", "", "", "",
                   0x7F000001, "", "", "", {}};
  std::strncpy(record.source, source, sizeof record.source - 1);
  return record;
}

template <class T>
std::string Bytes(const T& record) {
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

// What the two families share, the serials of their own codes, and a record
// of a time with a text in its first text column.
struct Family {
  const char* name;
  uint32_t size, timeOffset;
  uint32_t (*ensure)(CallerToken, const char*);
  uint32_t (*write)(CallerToken, const char*, const void*, uint32_t);
  uint32_t (*readAll)(CallerToken, const char*, void*, uint32_t);
  uint32_t (*count)(CallerToken, const char*);
  uint32_t (*lastId)(CallerToken, const char*);
  uint32_t (*run)(CallerToken, const char*, const char*);
  const char* code;        // "[alm", "[log"
  const char* lastIdCode;  // its largest-id export's
  const char* textColumn;
  std::string (*record)(uint32_t time, const char* text);
  std::vector<int> sqliteKinds;
};

const Family kFamilies[] = {
    {"Alarm", sizeof(AlarmRecord), offsetof(AlarmRecord, arisetime), almEnsureTableExist,
     [](CallerToken t, const char* n, const void* r, uint32_t s) {
       return almSetAlarm(t, n, static_cast<const AlarmRecord*>(r), s);
     },
     [](CallerToken t, const char* n, void* r, uint32_t s) {
       return almGetAllAlarm(t, n, static_cast<AlarmRecord*>(r), s);
     },
     almGetAlarmCount, almGetLastID, almDeleteAlarm, "[alm", "[alm7", "station",
     [](uint32_t time, const char* text) { return Bytes(Alarm(text, "t", time)); }, {1, 4, 6}},
    {"Log", sizeof(LogRecord), offsetof(LogRecord, logtime), logEnsureTableExist,
     [](CallerToken t, const char* n, const void* r, uint32_t s) {
       return logSetLog(t, n, static_cast<const LogRecord*>(r), s);
     },
     [](CallerToken t, const char* n, void* r, uint32_t s) {
       return logGetAllLog(t, n, static_cast<LogRecord*>(r), s);
     },
     logGetLogCount, logGetLastID, logDeleteLog, "[log", "[log5", "source",
     [](uint32_t time, const char* text) { return Bytes(Entry(time, text)); }, {1, 4, 5}},
};

// Each database once per family; the name ends in the family's.
std::vector<Database> FamilyDatabases(std::vector<int> families = {0, 1}) {
  std::vector<Database> all;
  for (int family : families)
    for (Database database : Databases(kFamilies[family].sqliteKinds)) {
      database.name += kFamilies[family].name;
      database.variant = family;
      all.push_back(database);
    }
  return all;
}

class FixedRecordTest : public DatabaseTest {
 protected:
  const Family& family() const { return kFamilies[GetParam().variant]; }
  std::string Code(const char* serial) const { return family().code + std::string(serial); }
  std::string NewTable() {
    std::string table = DropAtEnd(UniqueTableName(family().name));
    EXPECT_EQ(family().ensure(Token(), table.c_str()), 0u);
    return table;
  }
  uint32_t Run(const std::string& table, const char* backtickTemplate) {
    return family().run(Token(), table.c_str(), Sql(backtickTemplate, table).c_str());
  }
  uint32_t Write(const std::string& table, const std::string& bytes) {
    return family().write(Token(), table.c_str(), bytes.data(), uint32_t(bytes.size()));
  }
  // The first `count` records of the table as the family lays them out.
  template <class Record>
  std::vector<Record> Read(const std::string& table, uint32_t count) {
    std::vector<Record> records(count);
    EXPECT_EQ(family().readAll(Token(), table.c_str(), records.data(), count * sizeof(Record)), 0u)
        << LastError();
    return records;
  }
  // The read into `room` bytes, which start dirty: each whole record's id
  // and time, and whether every other byte was cleared.
  std::vector<Ids> ReadAll(const std::string& table, uint32_t room) {
    std::string bytes(room, '\xAB');
    EXPECT_EQ(family().readAll(Token(), table.c_str(), bytes.data(), room), 0u) << LastError();
    std::vector<Ids> read;
    const uint32_t size = family().size, whole = room / size;
    for (uint32_t k = 0; k < whole; ++k) {
      uint32_t id, time;
      std::memcpy(&id, &bytes[k * size], 4);
      std::memcpy(&time, &bytes[k * size + family().timeOffset], 4);
      if (id != 0) read.push_back({id, time});
    }
    EXPECT_EQ(bytes.substr(read.size() * size), std::string(room - read.size() * size, '\0'));
    return read;
  }
};

TEST_P(FixedRecordTest, NewTablesAreCreatedOnceWithTheirIndexes) {
  const std::string table = DropAtEnd(UniqueTableName(family().name));
  EXPECT_EQ(family().count(nullptr, table.c_str()), 0u);  // a text that creating keeps
  const std::string kept = LastError();
  EXPECT_EQ(family().ensure(Token(), table.c_str()), 0u);
  EXPECT_EQ(family().ensure(Token(), table.c_str()), 0u);
  EXPECT_EQ(family().ensure(Token(), "no'such table"), 0u);  // a rejected create
  EXPECT_EQ(LastError(), kept);
  // Its id and time indexes, except under kind 4; ensuring an existing table adds none.
  const uint32_t none = kind() == 4 ? 1 : 0;
  EXPECT_EQ(Run(table, kind() == 2 ? "drop index `idx_%s` on `%s`" : "drop index `idx_%s`"), none);
  const std::string dropTimeIndex = DropTimeIndexSql(kind(), table);
  EXPECT_EQ(family().run(Token(), table.c_str(), dropTimeIndex.c_str()), none) << LastError();
  EXPECT_EQ(family().ensure(Token(), table.c_str()), 0u);
  EXPECT_EQ(family().run(Token(), table.c_str(), dropTimeIndex.c_str()), 1u);
  EXPECT_EQ(family().lastId(Token(), table.c_str()), 0u);
  EXPECT_EQ(ReadAll(table, 2 * family().size), std::vector<Ids>{});
}

TEST_P(FixedRecordTest, WholeRecordsAreNumberedOnInBufferOrder) {
  const std::string table = NewTable();
  ASSERT_EQ(Write(table, family().record(1, "s")), 0u) << LastError();
  EXPECT_EQ(family().lastId(Token(), table.c_str()), 1u);
  ASSERT_EQ(Run(table, "update `%s` set `id`=41"), 0u) << LastError();
  // Three records and part of a fourth: the part is ignored.
  const std::string three =
      family().record(30, "a") + family().record(10, "b") + family().record(20, "c");
  ASSERT_EQ(Write(table, three + std::string(family().size - 1, '\xEE')), 0u) << LastError();
  EXPECT_TRUE(Refused(Write(table, std::string(family().size - 1, '\0')), 1,
                      Code("101] invalid parameter")));
  EXPECT_EQ(family().lastId(Token(), table.c_str()), 44u);
  EXPECT_EQ(family().count(Token(), table.c_str()), 4u);

  // A rejected insert keeps the records before it and ends the call.
  const std::string unique = "create unique index `uq_%s` on `%s` (`" +
                             std::string(family().textColumn) + "`)";
  ASSERT_EQ(Run(table, unique.c_str()), 0u) << LastError();
  EXPECT_TRUE(Refused(Write(table, family().record(5, "first") + family().record(6, "a") +
                                       family().record(7, "third")),
                      1, Code("104] exec error: ")));
  const std::string error = LastError();
  EXPECT_NE(error.find(", sql: insert into "), std::string::npos) << error;
  EXPECT_NE(error.find("values(46, "), std::string::npos) << error;
  EXPECT_EQ(family().lastId(Token(), table.c_str()), 45u);

  EXPECT_EQ(ReadAll(table, 8 * family().size),
            (std::vector<Ids>{{41, 1}, {42, 30}, {43, 10}, {44, 20}, {45, 5}}));
  // Room for two records and part of a third: the two lowest ids, every byte cleared.
  EXPECT_EQ(ReadAll(table, 2 * family().size + family().size / 2),
            (std::vector<Ids>{{41, 1}, {42, 30}}));
}

TEST_P(FixedRecordTest, FailuresAreCoded) {
  const std::string missing = UniqueTableName("missing"), table = NewTable();
  const char* m = missing.c_str();
  const std::string record = family().record(1, "s");
  std::string untouched(family().size, '\xAB');
  EXPECT_TRUE(Refused(Write(missing, record), 1, Code("103] failed to open table: select max(")));
  EXPECT_TRUE(Refused(family().readAll(Token(), m, untouched.data(), family().size), 1,
                      Code("203] failed to open table: ")));
  EXPECT_EQ(untouched, std::string(family().size, '\xAB'));
  EXPECT_TRUE(Refused(family().count(Token(), m), 0,
                      Code("403] failed to open table: select count(*) from ")));
  EXPECT_TRUE(Refused(family().lastId(Token(), m), 0,
                      family().lastIdCode + std::string("03] failed to open table: select max(")));
  EXPECT_TRUE(Refused(family().run(Token(), m, "delete frm nowhere"), 1,
                      Code("603] exec error: ")));
  EXPECT_NE(LastError().find(", sql: delete frm nowhere"), std::string::npos) << LastError();
  EXPECT_TRUE(Refused(family().readAll(Token(), m, untouched.data(), family().size - 1), 1,
                      Code("201] invalid parameter")));

  // Settings that no data source answers to stay in force until replaced;
  // arguments are checked before any connection is tried.
  ASSERT_EQ(dbInitialize("no_such_dsn;u;p;1"), 1u);
  EXPECT_TRUE(Refused(Write(table, record.substr(1)), 1, Code("101] invalid parameter")));
  EXPECT_TRUE(Refused(family().count(Token(), m), 0, Code("402] failed to open DSN: no_such_dsn")));
  EXPECT_TRUE(Refused(Write(table, record), 1, Code("102] failed to open DSN: no_such_dsn")));
  EXPECT_EQ(family().ensure(Token(), table.c_str()), 1u);
}

INSTANTIATE_TEST_SUITE_P(Databases, FixedRecordTest, ::testing::ValuesIn(FamilyDatabases()),
                         DatabaseName);

// Each family's own exports.
class AlarmTest : public FixedRecordTest {
 protected:
  uint32_t Store(const std::string& table, const std::vector<AlarmRecord>& records) {
    return almSetAlarm(Token(), table.c_str(), records.data(),
                       uint32_t(records.size() * sizeof(AlarmRecord)));
  }
  Ids QueryIds(const std::string& table, uint32_t start, uint32_t end, uint32_t filter,
               const AlarmLists& lists = {}) {
    const std::string query = AlarmQueryBytes(start, end, filter, lists);
    AlarmRecord* block = nullptr;
    uint32_t size = 12345;
    EXPECT_EQ(almGetAlarmByQuery(Token(), table.c_str(),
                                 reinterpret_cast<const AlarmQuery*>(query.data()), &block, &size),
              0u) << LastError();
    EXPECT_EQ(size % sizeof(AlarmRecord), 0u);
    EXPECT_EQ(block == nullptr, size == 0);
    Ids ids;
    for (uint32_t i = 0; i < size / sizeof(AlarmRecord); ++i) ids.push_back(block[i].id);
    FreeResultBlock(block);
    return ids;
  }
};

// Texts of every kind are in hostile_input_test.
TEST_P(AlarmTest, FieldsFlagsAndNullValuesComeBackConfirmAndRecover) {
  const std::string table = NewTable();
  // Read back as stored, unsigned fields past 2^31 too, with confirmed from
  // status and the reserved bytes cleared.
  AlarmRecord full{1, "station-1", "tag-1", 0, 0.1, kLast, 1, kAfter2038, 3232235786u, 2,
                   "level high", 250, kLast, "batch-1", kLast, {}};
  AlarmRecord written = full;
  std::memset(written.reserved, 0x5A, sizeof written.reserved);
  AlarmRecord flag = Alarm("s", "flag", 2, 1, 1, 4);
  std::memset(&flag.value, 0xFF, sizeof flag.value);
  reinterpret_cast<unsigned char*>(&flag.value)[0] = 5;
  ASSERT_EQ(Store(table, {written, Alarm("s", "null", 3), flag}), 0u) << LastError();
  ASSERT_EQ(Run(table, "update `%s` set `value`=NULL where `id`=2"), 0u);
  std::vector<AlarmRecord> read = Read<AlarmRecord>(table, 3);
  EXPECT_EQ(static_cast<float>(read[0].value), 0.1f);  // single precision on MariaDB
  full.value = read[0].value;
  EXPECT_EQ(std::memcmp(&read[0], &full, sizeof full), 0);
  EXPECT_EQ(read[1].confirmed, 0u);
  EXPECT_EQ(double{read[1].value}, double{read[0].value});  // a NULL repeats the row before
  const unsigned char one[8] = {1, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(&read[2].value, one, 8), 0);
  // The flag byte was stored as the number 5.
  ASSERT_EQ(Run(table, "update `%s` set `tagtype`=0 where `id`=3"), 0u);
  EXPECT_EQ(double{Read<AlarmRecord>(table, 3)[2].value}, 5.0);
  written.value = NAN;
  EXPECT_TRUE(Refused(Store(table, {written}), 1, "[alm101] invalid parameter"));

  // Confirm and recover change their row alone.
  const std::string changed = NewTable();
  ASSERT_EQ(Store(changed, {Alarm("s", "t", 1), Alarm("s", "t", 2)}), 0u);
  EXPECT_EQ(almConfirmAlarm(Token(), changed.c_str(), 2, 3), 0u) << LastError();
  EXPECT_EQ(almSetRecoverAlarm(Token(), changed.c_str(), 2, 99), 0u) << LastError();
  AlarmRecord second = Read<AlarmRecord>(changed, 2)[1];
  EXPECT_EQ(second.status, 3u);
  EXPECT_EQ(second.recovertime, 99u);
  EXPECT_EQ(Read<AlarmRecord>(changed, 2)[0].status, 0u);
  // An update that matches no row: MariaDB answers success, the others no-data.
  const bool mariadb = kind() == 2;
  EXPECT_TRUE(Refused(almConfirmAlarm(Token(), changed.c_str(), 77, 1), mariadb ? 0 : 1,
                      mariadb ? "" : "[alm503] exec error: "));
  EXPECT_TRUE(Refused(almSetRecoverAlarm(Token(), changed.c_str(), 77, 1), mariadb ? 0 : 1,
                      mariadb ? "" : "[alm803] exec error: "));
  EXPECT_TRUE(Refused(almConfirmAlarm(Token(), changed.c_str(), 0, 1), 1,
                      "[alm501] invalid parameter"));
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
  // Names compare byte for byte: case, accents and trailing spaces count.
  const char* names[] = {"east", "East", "\xc3\xa9" "ast", "east "};
  for (const char* name : names) ASSERT_EQ(Store(table, {Alarm(name, "a", 400)}), 0u);
  for (uint32_t k = 0; k < 4; ++k)
    EXPECT_EQ(QueryIds(table, 400, 401, 2, {.stations = {names[k]}}), Ids{6 + k}) << names[k];
  ASSERT_EQ(Store(table, {Alarm("x", "a", kAfter2038, kLast)}), 0u);
  EXPECT_EQ(QueryIds(table, kAfter2038, kLast, 8, {.types = {-1}}), Ids{10});

  AlarmRecord* block = reinterpret_cast<AlarmRecord*>(0x1234);
  uint32_t size = 99;
  const AlarmQuery query{0, 10, 0, 0, 0, 0, 0, 0};
  const std::string missing = UniqueTableName("alm_missing");
  EXPECT_TRUE(Refused(almGetAlarmByQuery(Token(), missing.c_str(), &query, &block, &size), 1,
                      "[alm303] failed to open table: select * from "));
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(block, reinterpret_cast<AlarmRecord*>(0x1234));
  EXPECT_TRUE(Refused(almGetAlarmByQuery(Token(), table.c_str(), &query, nullptr, &size), 1,
                      "[alm301] invalid parameter"));
}

INSTANTIATE_TEST_SUITE_P(Databases, AlarmTest, ::testing::ValuesIn(FamilyDatabases({0})),
                         DatabaseName);

class LogTest : public FixedRecordTest {};

TEST_P(LogTest, FieldsRoundTripAndByTimeIncludesBothEnds) {
  const std::string table = NewTable();
  LogRecord record = Entry(7);
  record.logtime = kAfter2038;
  record.logtype = kLast;
  record.ip = 3232235786u;
  const std::string source = "it's C:\\logs\\" + std::string(50, 's');  // 63 characters
  std::strcpy(record.source, source.c_str());
  std::memset(record.loginfo, 'i', sizeof record.loginfo - 1);
  std::memset(record.ackinfo, 'a', 250);
  std::strcpy(record.operator_, "o'neil");
  std::strcpy(record.rsvd, "not written");
  ASSERT_EQ(logSetLog(Token(), table.c_str(), &record, 914), 0u) << LastError();
  ASSERT_EQ(Run(table, "update `%s` set `rsvd` = 'by hand' where `id` = 1"), 0u) << LastError();

  LogRecord expected = record;
  expected.id = 1;
  std::strncpy(expected.rsvd, "by hand", sizeof expected.rsvd);  // zero-filled
  EXPECT_EQ(Bytes(Read<LogRecord>(table, 1)[0]), Bytes(expected));

  // The ackinfo field holds 255 characters, its column 250: only SQLite keeps them.
  if (GetParam().sqlite()) {
    std::memset(record.ackinfo, 'a', sizeof record.ackinfo - 1);
    ASSERT_EQ(logSetLog(Token(), table.c_str(), &record, 914), 0u) << LastError();
    EXPECT_EQ(Read<LogRecord>(table, 2)[1].ackinfo, std::string(255, 'a'));
  }

  // logGetLogByTime includes both ends and hands out a malloc block, or null for no entry.
  const std::string timed = NewTable();
  const LogRecord entries[] = {Entry(30), Entry(10), Entry(20), Entry(2), Entry(kAfter2038)};
  ASSERT_EQ(logSetLog(Token(), timed.c_str(), entries, sizeof entries), 0u) << LastError();
  LogRecord* block = nullptr;
  uint32_t size = 1;
  EXPECT_TRUE(Refused(logGetLogByTime(Token(), timed.c_str(), 20, 20, &block, &size), 1,
                      "[log301] invalid parameter"));
  ASSERT_EQ(logGetLogByTime(Token(), timed.c_str(), 2, 20, &block, &size), 0u) << LastError();
  ASSERT_EQ(size, 3 * sizeof(LogRecord));
  EXPECT_EQ((Ids{block[0].id, block[1].id, block[2].id}), (Ids{2, 3, 4}));
  FreeResultBlock(block);
  ASSERT_EQ(logGetLogByTime(Token(), timed.c_str(), kAfter2038, kLast, &block, &size), 0u);
  ASSERT_EQ(size, sizeof(LogRecord));
  EXPECT_EQ(block[0].id, 5u);
  FreeResultBlock(block);
  block = reinterpret_cast<LogRecord*>(0x1);
  EXPECT_EQ(logGetLogByTime(Token(), timed.c_str(), 200, 300, &block, &size), 0u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
  const std::string missing = UniqueTableName("nolog");
  EXPECT_TRUE(Refused(logGetLogByTime(Token(), missing.c_str(), 1, 2, &block, &size), 1,
                      "[log303] failed to open table: "));
}

INSTANTIATE_TEST_SUITE_P(Databases, LogTest, ::testing::ValuesIn(FamilyDatabases({1})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
