// The log exports against every database: id assignment, partial writes,
// reading into the caller's buffer and into blocks, texts and coded failures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "scadastore.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

LogRecord Entry(uint32_t logtime, const std::string& info = "entry") {
  LogRecord record;
  std::memset(&record, 0, sizeof record);
  record.id = 500 - logtime;  // the caller's id is ignored
  record.logtime = logtime;
  record.millisecond = logtime % 1000;
  record.logtype = 2;
  record.ip = 0x7F000001;
  std::strncpy(record.loginfo, info.c_str(), sizeof record.loginfo - 1);
  return record;
}

std::string LastError() { return dbGetLastError(); }

class LogTest : public DatabaseTest {
 protected:
  std::string NewTable() {
    std::string table = DropAtEnd(UniqueTableName("log"));
    EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
    return table;
  }

  // A new table holding one entry per logtime, written in one call.
  std::string TableWith(std::vector<uint32_t> logtimes) {
    std::string table = NewTable();
    std::vector<LogRecord> records;
    for (uint32_t logtime : logtimes) records.push_back(Entry(logtime));
    EXPECT_EQ(logSetLog(Token(), table.c_str(), records.data(), records.size() * 914), 0u)
        << LastError();
    return table;
  }

  // logGetAllLog into a buffer of `capacity` records, filled with 0xAB first.
  std::vector<LogRecord> ReadAll(const std::string& table, uint32_t capacity) {
    std::vector<LogRecord> buffer(capacity);
    std::memset(buffer.data(), 0xAB, capacity * 914);
    EXPECT_EQ(logGetAllLog(Token(), table.c_str(), buffer.data(), capacity * 914), 0u)
        << LastError();
    return buffer;
  }

  bool IsSqlite() const { return GetParam().name.rfind("Sqlite", 0) == 0; }
};

bool AllZero(const LogRecord& record) {
  static const LogRecord zero{};
  return std::memcmp(&record, &zero, sizeof record) == 0;
}

TEST_P(LogTest, EnsureTableExistCreatesOnceAndWritesNoText) {
  const std::string table = DropAtEnd(UniqueTableName("log"));
  EXPECT_EQ(logGetLogCount(nullptr, table.c_str()), 0u);  // sets a text to keep
  EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  EXPECT_EQ(dbIsTableExist(Token(), table.c_str()), 1);
  EXPECT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  EXPECT_EQ(LastError(), "[log401] invalid parameter");
  EXPECT_EQ(logGetLogCount(Token(), table.c_str()), 0u);
  EXPECT_EQ(logGetLastID(Token(), table.c_str()), 0u);
}

TEST_P(LogTest, SetLogNumbersFromTheHighestIdInBufferOrder) {
  const std::string table = TableWith({30, 10, 20});
  LogRecord two[2] = {Entry(40), Entry(50)};
  // 1827 bytes hold one whole record: only the first is written.
  EXPECT_EQ(logSetLog(Token(), table.c_str(), two, 1827), 0u);
  EXPECT_EQ(logSetLog(Token(), table.c_str(), two, 913), 1u);
  EXPECT_EQ(LastError(), "[log101] invalid parameter");
  EXPECT_EQ(logGetLogCount(Token(), table.c_str()), 4u);
  EXPECT_EQ(logGetLastID(Token(), table.c_str()), 4u);

  const std::vector<LogRecord> read = ReadAll(table, 4);
  const uint32_t logtimes[] = {30, 10, 20, 40};
  for (uint32_t k = 0; k < 4; ++k) {
    EXPECT_EQ(uint32_t{read[k].id}, k + 1);
    EXPECT_EQ(uint32_t{read[k].logtime}, logtimes[k]);
    EXPECT_EQ(uint32_t{read[k].millisecond}, logtimes[k]);
    EXPECT_EQ(uint32_t{read[k].ip}, 0x7F000001u);
    EXPECT_STREQ(read[k].loginfo, "entry");
  }
}

TEST_P(LogTest, RejectedInsertStopsTheCallAndKeepsEarlierRecords) {
  const std::string table = NewTable();
  std::vector<LogRecord> five = {Entry(1), Entry(2), Entry(3), Entry(4), Entry(5)};
  // Doubled, these quotes push the third insert past its bound: cut, then rejected.
  std::memset(five[2].loginfo, '\'', 240);
  std::memset(five[2].ackinfo, '\'', 240);
  EXPECT_EQ(logSetLog(Token(), table.c_str(), five.data(), 5 * 914), 1u);
  EXPECT_EQ(LastError().rfind("[log104] exec error: ", 0), 0u) << LastError();
  EXPECT_NE(LastError().find(", sql: insert into "), std::string::npos) << LastError();
  EXPECT_EQ(logGetLogCount(Token(), table.c_str()), 2u);
  EXPECT_EQ(logGetLastID(Token(), table.c_str()), 2u);
}

TEST_P(LogTest, GetAllLogFillsLowestIdsAndZeroesTheRest) {
  const std::string empty = NewTable();
  for (const LogRecord& record : ReadAll(empty, 2)) EXPECT_TRUE(AllZero(record));

  const std::string table = TableWith({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  std::vector<LogRecord> read = ReadAll(table, 3);
  for (uint32_t k = 0; k < 3; ++k) EXPECT_EQ(uint32_t{read[k].id}, k + 1);

  read = ReadAll(table, 12);
  EXPECT_EQ(uint32_t{read[9].id}, 10u);
  EXPECT_TRUE(AllZero(read[10]));
  EXPECT_TRUE(AllZero(read[11]));

  // A partial record at the end is not filled, but is cleared.
  std::vector<unsigned char> bytes(914 + 500, 0xAB);
  EXPECT_EQ(logGetAllLog(Token(), table.c_str(), reinterpret_cast<LogRecord*>(bytes.data()),
                         bytes.size()), 0u);
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 914, bytes.end()),
            std::vector<unsigned char>(500, 0));
}

TEST_P(LogTest, GetLogByTimeIncludesBothEndsAndHandsOutMallocBlocks) {
  const std::string table = TableWith({105, 100, 103, 102, 104, 101, 106});
  LogRecord* block = nullptr;
  uint32_t size = 1;
  EXPECT_EQ(logGetLogByTime(Token(), table.c_str(), 102, 102, &block, &size), 1u);
  EXPECT_EQ(LastError(), "[log301] invalid parameter");

  ASSERT_EQ(logGetLogByTime(Token(), table.c_str(), 102, 105, &block, &size), 0u) << LastError();
  ASSERT_EQ(size, 3656u);
  const uint32_t ids[] = {1, 3, 4, 5};
  const uint32_t logtimes[] = {105, 103, 102, 104};
  for (uint32_t k = 0; k < 4; ++k) {
    EXPECT_EQ(uint32_t{block[k].id}, ids[k]);
    EXPECT_EQ(uint32_t{block[k].logtime}, logtimes[k]);
  }
  std::free(block);

  block = reinterpret_cast<LogRecord*>(0x1);
  EXPECT_EQ(logGetLogByTime(Token(), table.c_str(), 200, 300, &block, &size), 0u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
}

TEST_P(LogTest, TextsRoundTripAndRsvdComesBackFromTheTable) {
  const std::string table = NewTable();
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

  LogRecord read = ReadAll(table, 1)[0];
  EXPECT_EQ(read.source, source);
  EXPECT_EQ(read.loginfo, std::string(249, 'i'));
  EXPECT_EQ(read.ackinfo, std::string(250, 'a'));
  EXPECT_STREQ(read.operator_, "o'neil");
  EXPECT_STREQ(read.rsvd, "by hand");

  // The ackinfo field holds 255 characters, its column 250: only SQLite keeps them.
  std::memset(record.ackinfo, 'a', sizeof record.ackinfo - 1);
  if (IsSqlite()) {
    ASSERT_EQ(logSetLog(Token(), table.c_str(), &record, 914), 0u) << LastError();
    EXPECT_EQ(ReadAll(table, 2)[1].ackinfo, std::string(255, 'a'));
  } else {
    EXPECT_EQ(logSetLog(Token(), table.c_str(), &record, 914), 1u);
    EXPECT_EQ(LastError().rfind("[log104] exec error: ", 0), 0u) << LastError();
  }
}

TEST_P(LogTest, FailuresAreCodedAndLeaveBuffersAlone) {
  const std::string missing = UniqueTableName("nolog");
  LogRecord record = Entry(1);
  std::vector<unsigned char> untouched(914, 0xAB);
  LogRecord buffer;
  std::memcpy(&buffer, untouched.data(), 914);
  LogRecord* block = nullptr;
  uint32_t size = 0;

  EXPECT_EQ(logSetLog(Token(), missing.c_str(), &record, 914), 1u);
  EXPECT_EQ(LastError().rfind("[log103] failed to open table: select max(", 0), 0u) << LastError();
  EXPECT_EQ(logGetAllLog(Token(), missing.c_str(), &buffer, 914), 1u);
  EXPECT_EQ(LastError().rfind("[log203] failed to open table: select * from ", 0), 0u);
  EXPECT_EQ(std::memcmp(&buffer, untouched.data(), 914), 0);
  EXPECT_EQ(logGetLogByTime(Token(), missing.c_str(), 1, 2, &block, &size), 1u);
  EXPECT_EQ(LastError().rfind("[log303] failed to open table: ", 0), 0u);
  EXPECT_EQ(logGetLogCount(Token(), missing.c_str()), 0u);
  EXPECT_EQ(LastError().rfind("[log403] failed to open table: select count(*) from ", 0), 0u);
  EXPECT_EQ(logGetLastID(Token(), missing.c_str()), 0u);
  EXPECT_EQ(LastError().rfind("[log503] failed to open table: select max(", 0), 0u);
  EXPECT_EQ(logDeleteLog(Token(), missing.c_str(), "delete from nowhere_at_all"), 1u);
  EXPECT_EQ(LastError().rfind("[log603] exec error: ", 0), 0u);
  EXPECT_NE(LastError().find(", sql: delete from nowhere_at_all"), std::string::npos);

  EXPECT_EQ(logGetAllLog(Token(), missing.c_str(), &buffer, 913), 1u);
  EXPECT_EQ(LastError(), "[log201] invalid parameter");
  EXPECT_EQ(logGetLogByTime(Token(), missing.c_str(), 1, 2, nullptr, &size), 1u);
  EXPECT_EQ(LastError(), "[log301] invalid parameter");

  // Settings that no data source answers to stay in force until replaced.
  EXPECT_EQ(dbInitialize("no_such_log_dsn;u;p;1"), 1u);
  EXPECT_EQ(logGetLogCount(Token(), missing.c_str()), 0u);
  EXPECT_EQ(LastError(), "[log402] failed to open DSN: no_such_log_dsn");
  EXPECT_EQ(logSetLog(Token(), missing.c_str(), &record, 914), 1u);
  EXPECT_EQ(LastError(), "[log102] failed to open DSN: no_such_log_dsn");
  ASSERT_EQ(dbInitialize(GetParam().Config().c_str()), 0u);
}

INSTANTIATE_TEST_SUITE_P(Databases, LogTest, ::testing::ValuesIn(Databases({1, 4, 5})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
