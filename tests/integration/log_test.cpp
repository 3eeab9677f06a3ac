// The log exports against every database: id assignment, partial writes,
// reading into the caller's buffer and into blocks, texts and coded failures.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "scadastore.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

// An entry whose own id (500 - logtime) the store ignores.
LogRecord Entry(uint32_t logtime) {
  return {500 - logtime, logtime, logtime % 1000, 0, "", "entry", "", "", "", 0x7F000001,
          "", "", "", {}};
}

using IdsAndTimes = std::vector<std::pair<uint32_t, uint32_t>>;

IdsAndTimes IdsAndTimesOf(const LogRecord* records, uint32_t count) {
  IdsAndTimes result;
  for (uint32_t k = 0; k < count; ++k) {
    uint32_t id = records[k].id, logtime = records[k].logtime;  // packed: copy, never bind
    result.emplace_back(id, logtime);
  }
  return result;
}

class LogTest : public DatabaseTest {
 protected:
  // A new table holding one entry per logtime, written in one call.
  std::string TableWith(const std::vector<uint32_t>& logtimes) {
    const std::string table = DropAtEnd(UniqueTableName("log"));
    EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
    std::vector<LogRecord> records;
    for (uint32_t logtime : logtimes) records.push_back(Entry(logtime));
    EXPECT_EQ(logSetLog(Token(), table.c_str(), records.data(), records.size() * 914), 0u);
    return table;
  }

  // logGetAllLog into a buffer of `capacity` records, filled with 0xAB first.
  std::vector<LogRecord> ReadAll(const std::string& table, uint32_t capacity) {
    std::vector<LogRecord> buffer(capacity);
    std::memset(buffer.data(), 0xAB, capacity * 914);
    EXPECT_EQ(logGetAllLog(Token(), table.c_str(), buffer.data(), capacity * 914), 0u);
    return buffer;
  }
};

TEST_P(LogTest, NewTableIsCreatedOnceWithoutTextAndReadsEmpty) {
  const std::string table = DropAtEnd(UniqueTableName("log"));
  EXPECT_EQ(logGetLogCount(nullptr, table.c_str()), 0u);  // sets a text to keep
  EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  EXPECT_EQ(LastError(), "[log401] invalid parameter");
  // With its time index, except under kind 4; ensuring an existing table adds none.
  const std::string dropTimeIndex = DropTimeIndexSql(kind(), table);
  EXPECT_EQ(logDeleteLog(Token(), table.c_str(), dropTimeIndex.c_str()), kind() == 4 ? 1u : 0u);
  EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  EXPECT_EQ(logDeleteLog(Token(), table.c_str(), dropTimeIndex.c_str()), 1u);
  EXPECT_EQ(logGetLastID(Token(), table.c_str()), 0u);
  EXPECT_TRUE(AllBytesAre(0, ReadAll(table, 2).data(), 2 * 914));
}

TEST_P(LogTest, SetLogNumbersInBufferOrderAndBothReadsFindTheEntries) {
  const std::string table = TableWith({30, 10, 20});
  LogRecord two[2] = {Entry(40), Entry(50)};
  // 1827 bytes hold one whole record: only the first is written.
  EXPECT_EQ(logSetLog(Token(), table.c_str(), two, 1827), 0u);
  EXPECT_TRUE(
      Refused(logSetLog(Token(), table.c_str(), two, 913), 1, "[log101] invalid parameter"));
  LogRecord five[5] = {Entry(1), Entry(2), Entry(3), Entry(4), Entry(5)};
  // Doubled, these quotes push the third insert past its bound: cut, then rejected.
  std::memset(five[2].loginfo, '\'', 240);
  std::memset(five[2].ackinfo, '\'', 240);
  EXPECT_TRUE(
      Refused(logSetLog(Token(), table.c_str(), five, 5 * 914), 1, "[log104] exec error: "));
  EXPECT_EQ(logGetLogCount(Token(), table.c_str()), 6u);
  EXPECT_EQ(logGetLastID(Token(), table.c_str()), 6u);

  const std::vector<LogRecord> read = ReadAll(table, 8);
  EXPECT_EQ(IdsAndTimesOf(read.data(), 6),
            (IdsAndTimes{{1, 30}, {2, 10}, {3, 20}, {4, 40}, {5, 1}, {6, 2}}));
  EXPECT_TRUE(AllBytesAre(0, &read[6], 2 * 914));

  // Three records and part of a fourth: the part is not filled, but cleared.
  std::vector<unsigned char> bytes(3 * 914 + 500, 0xAB);
  auto* records = reinterpret_cast<LogRecord*>(bytes.data());
  EXPECT_EQ(logGetAllLog(Token(), table.c_str(), records, bytes.size()), 0u);
  EXPECT_EQ(IdsAndTimesOf(records, 3), (IdsAndTimes{{1, 30}, {2, 10}, {3, 20}}));
  EXPECT_TRUE(AllBytesAre(0, &records[3], 500));

  // logGetLogByTime includes both ends and hands out a malloc block, or null for no entry.
  LogRecord* block = nullptr;
  uint32_t size = 1;
  EXPECT_TRUE(Refused(logGetLogByTime(Token(), table.c_str(), 20, 20, &block, &size), 1,
                      "[log301] invalid parameter"));
  ASSERT_EQ(logGetLogByTime(Token(), table.c_str(), 2, 30, &block, &size), 0u) << LastError();
  ASSERT_EQ(size, 3656u);
  EXPECT_EQ(IdsAndTimesOf(block, 4), (IdsAndTimes{{1, 30}, {2, 10}, {3, 20}, {6, 2}}));
  FreeResultBlock(block);
  block = reinterpret_cast<LogRecord*>(0x1);
  EXPECT_EQ(logGetLogByTime(Token(), table.c_str(), 200, 300, &block, &size), 0u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
}

TEST_P(LogTest, FieldsRoundTripAndRsvdComesBackFromTheTable) {
  const std::string table = DropAtEnd(UniqueTableName("log"));
  ASSERT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  LogRecord record = Entry(7);
  const std::string source = "it's C:\\logs\\" + std::string(50, 's');  // 63 characters
  std::strcpy(record.source, source.c_str());
  std::memset(record.loginfo, 'i', sizeof record.loginfo - 1);
  std::memset(record.ackinfo, 'a', 250);
  std::strcpy(record.operator_, "o'neil");
  std::strcpy(record.rsvd, "not written");
  ASSERT_EQ(logSetLog(Token(), table.c_str(), &record, 914), 0u) << LastError();
  const std::string update = "update " + table + " set rsvd = 'by hand' where id = 1";
  ASSERT_EQ(logDeleteLog(Token(), table.c_str(), update.c_str()), 0u) << LastError();

  const LogRecord read = ReadAll(table, 1)[0];
  EXPECT_EQ(uint32_t{read.millisecond}, 7u);
  EXPECT_EQ(uint32_t{read.ip}, 0x7F000001u);
  EXPECT_EQ(read.source, source);
  EXPECT_EQ(read.loginfo, std::string(249, 'i'));
  EXPECT_EQ(read.ackinfo, std::string(250, 'a'));
  EXPECT_STREQ(read.operator_, "o'neil");
  EXPECT_STREQ(read.rsvd, "by hand");

  // The ackinfo field holds 255 characters, its column 250: only SQLite keeps them.
  if (GetParam().name.starts_with("Sqlite")) {
    std::memset(record.ackinfo, 'a', sizeof record.ackinfo - 1);
    ASSERT_EQ(logSetLog(Token(), table.c_str(), &record, 914), 0u) << LastError();
    EXPECT_EQ(ReadAll(table, 2)[1].ackinfo, std::string(255, 'a'));
  }
}

TEST_P(LogTest, FailuresAreCoded) {
  const std::string table = UniqueTableName("nolog");  // never created
  const char* missing = table.c_str();
  const LogRecord record = Entry(1);
  LogRecord buffer;
  std::memset(&buffer, 0xAB, 914);
  LogRecord* block = nullptr;
  uint32_t size = 0;

  // The bodies shared with the alarm exports are checked there; these are the log's own codes.
  EXPECT_TRUE(Refused(logSetLog(Token(), missing, &record, 914), 1,
                      "[log103] failed to open table: select max("));
  EXPECT_TRUE(Refused(logGetLogByTime(Token(), missing, 1, 2, &block, &size), 1,
                      "[log303] failed to open table: "));
  EXPECT_TRUE(Refused(logDeleteLog(Token(), missing, "delete from nowhere_at_all"), 1,
                      "[log603] exec error: "));
  EXPECT_NE(LastError().find(", sql: delete from nowhere_at_all"), std::string::npos);
  EXPECT_TRUE(
      Refused(logGetAllLog(Token(), missing, &buffer, 913), 1, "[log201] invalid parameter"));
  EXPECT_TRUE(Refused(logGetLogByTime(Token(), missing, 1, 2, nullptr, &size), 1,
                      "[log301] invalid parameter"));

  // Settings that no data source answers to stay in force until replaced.
  EXPECT_EQ(dbInitialize("no_such_log_dsn;u;p;1"), 1u);
  EXPECT_TRUE(
      Refused(logGetLogCount(Token(), missing), 0, "[log402] failed to open DSN: no_such_log_dsn"));
  EXPECT_TRUE(Refused(logSetLog(Token(), missing, &record, 914), 1,
                      "[log102] failed to open DSN: no_such_log_dsn"));
}

INSTANTIATE_TEST_SUITE_P(Databases, LogTest, ::testing::ValuesIn(Databases({1, 4, 5})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
