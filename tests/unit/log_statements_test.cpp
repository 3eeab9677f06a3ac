#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "log/log_statements.h"
#include "scadastore.h"

namespace scadastore::log {
namespace {

constexpr SqlDialect kBacktick = SqlDialect::Backtick;
constexpr SqlDialect kBracket = SqlDialect::Bracket;
constexpr SqlDialect kDoubleQuote = SqlDialect::DoubleQuote;

TEST(LogStatements, CreateTableAndIndexPerDialect) {
  const std::string columns =
      " (`id` integer NOT NULL PRIMARY KEY, `logtime` integer, `millisecond` integer, "
      "`logtype` integer, `source` varchar(64), `loginfo` varchar(250), `operator` varchar(32), "
      "`monitor` varchar(32), `logverify` varchar(64), `ip` integer, `ackinfo` varchar(250), "
      "`batch` varchar(64), `rsvd` varchar(128))";
  EXPECT_EQ(CreateTableStatement(kBacktick, "ev"),
            "create table `ev`" + columns + " ENGINE=InnoDB DEFAULT CHARSET=utf8");
  // Only the backtick dialect carries table options.
  const std::string bracketed = CreateTableStatement(kBracket, "ev");
  EXPECT_EQ(bracketed.substr(0, 32), "create table [ev] ([id] integer ");
  EXPECT_EQ(bracketed.substr(bracketed.size() - 20), "[rsvd] varchar(128))");
  const std::string quoted = CreateTableStatement(kDoubleQuote, "ev");
  EXPECT_EQ(quoted.substr(0, 32), "create table \"ev\" (\"id\" integer ");
  EXPECT_EQ(quoted.substr(quoted.size() - 20), "\"rsvd\" varchar(128))");

  EXPECT_EQ(CreateIndexStatement(kBracket, "ev"), "create index [idx_ev] on [ev] ([id])");
  EXPECT_EQ(CreateIndexStatement(kDoubleQuote, "ev"), "create index \"idx_ev\" on \"ev\" (\"id\")");
  const std::string longest(111, 'n');
  EXPECT_EQ(CreateIndexStatement(kBacktick, longest.c_str()),
            "create index `idx_" + longest + "` on `" + longest + "` (`id`)");
  EXPECT_EQ(CreateIndexStatement(kBacktick, (longest + "n").c_str()).size(), 255u);
}

TEST(LogStatements, QueriesPerDialectAndBuffer) {
  EXPECT_EQ(MaxIdStatement(kBacktick, "ev", kLongBufferSize), "select max(`id`) from `ev`");
  EXPECT_EQ(CountStatement(kBracket, "ev"), "select count(*) from [ev]");
  EXPECT_EQ(AllEntriesStatement(kDoubleQuote, "ev"), "select * from \"ev\" order by \"id\" asc");
  EXPECT_EQ(TimeRangeStatement(kBracket, "ev", 10, 4294967295u),
            "select * from [ev] where ([logtime] >= 10) and ([logtime] <= 4294967295)"
            " order by [id] asc");
  // The same name fits logSetLog's buffer but is cut in logGetLastID's.
  const std::string name(300, 'n');
  EXPECT_EQ(MaxIdStatement(kBacktick, name.c_str(), kLongBufferSize).size(), 324u);
  EXPECT_EQ(MaxIdStatement(kBacktick, name.c_str(), kShortBufferSize).size(), 255u);
}

LogRecord SampleRecord() {
  LogRecord record;
  std::memset(&record, 0, sizeof record);
  record.id = 99;  // ignored: the caller's id never reaches the statement
  record.logtime = 1700000000;
  record.millisecond = 250;
  record.logtype = 3;
  std::strcpy(record.source, "pump 'A'");
  std::strcpy(record.loginfo, "C:\\data");
  std::memset(record.operator_, 'o', sizeof record.operator_);  // no terminator: width bounds it
  record.ip = 4294967295u;
  std::strcpy(record.rsvd, "never written");
  return record;
}

TEST(LogStatements, InsertEscapesTextsPerDialect) {
  const LogRecord record = SampleRecord();
  const std::string operator_(32, 'o');
  EXPECT_EQ(InsertStatement(kBacktick, "ev", 7, &record),
            "insert into `ev` (`id`, `logtime`, `millisecond`, `logtype`, `source`, `loginfo`, "
            "`operator`, `monitor`, `logverify`, `ip`, `ackinfo`, `batch`) values(7, 1700000000, "
            "250, 3, 'pump ''A''', 'C:\\\\data', '" + operator_ + "', '', '', 4294967295, '', '')");
  // A backslash is doubled in the backtick dialect only.
  const std::string quoted = InsertStatement(kDoubleQuote, "ev", 7, &record);
  EXPECT_EQ(quoted.substr(0, 33), "insert into \"ev\" (\"id\", \"logtime\"");
  EXPECT_NE(quoted.find(", 'pump ''A''', 'C:\\data', '"), std::string::npos) << quoted;
  EXPECT_EQ(InsertStatement(kBracket, "ev", 7, &record).substr(0, 25), "insert into [ev] ([id], [");
}

TEST(LogStatements, InsertIsCutAt1023Characters) {
  // Unaligned, as the caller's buffer may place it.
  unsigned char bytes[1 + sizeof(LogRecord)];
  LogRecord record = SampleRecord();
  // Every text at its full width fits; doubled quotes push it past 1,200 characters.
  std::memset(record.source, 's', sizeof record.source - 1);
  std::memset(record.loginfo, '\'', sizeof record.loginfo - 1);
  std::memset(record.monitor, 'm', sizeof record.monitor - 1);
  std::memset(record.logverify, 'v', sizeof record.logverify - 1);
  std::memset(record.ackinfo, 'a', sizeof record.ackinfo - 1);
  std::memset(record.batch, 'b', sizeof record.batch - 1);
  std::memcpy(bytes + 1, &record, sizeof record);
  const std::string insert = InsertStatement(kBacktick, "ev", 1, bytes + 1);
  EXPECT_EQ(insert.size(), 1023u);
  EXPECT_EQ(insert.substr(insert.size() - 10), std::string(10, 'a'));
}

}  // namespace
}  // namespace scadastore::log
