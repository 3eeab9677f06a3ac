#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "log/log_statements.h"
#include "scadastore.h"

namespace scadastore::log {
namespace {

LogRecord SampleRecord() {
  // The caller's id (99) never reaches the statement, nor does rsvd.
  LogRecord record{99, 1700000000, 250, 3, "pump 'A'", "C:\\data", {}, "", "",
                   4294967295u, "", "", "never written", {}};
  std::memset(record.operator_, 'o', sizeof record.operator_);  // no terminator: width bounds it
  return record;
}

TEST(LogStatements, EveryStatementInEachDialect) {
  const LogRecord record = SampleRecord();
  const std::pair<SqlDialect, const char*> dialects[] = {
      {SqlDialect::Backtick, "``"}, {SqlDialect::Bracket, "[]"}, {SqlDialect::DoubleQuote, "\"\""}};
  for (const auto& [dialect, quotes] : dialects) {
    SCOPED_TRACE(quotes);
    const bool backtick = dialect == SqlDialect::Backtick;
    // Expected texts are written with backticks and quoted here as the dialect quotes names.
    auto quoted = [&](std::string text) {
      for (size_t n = 0; char& c : text)
        if (c == '`') c = quotes[n++ % 2];
      return text;
    };
    EXPECT_EQ(CreateTableStatement(dialect, "ev"),
              quoted("create table `ev` (`id` integer NOT NULL PRIMARY KEY, `logtime` integer, "
                     "`millisecond` integer, `logtype` integer, `source` varchar(64), "
                     "`loginfo` varchar(250), `operator` varchar(32), `monitor` varchar(32), "
                     "`logverify` varchar(64), `ip` integer, `ackinfo` varchar(250), "
                     "`batch` varchar(64), `rsvd` varchar(128))") +
                  (backtick ? " ENGINE=InnoDB DEFAULT CHARSET=utf8" : ""));
    EXPECT_EQ(CreateIndexStatement(dialect, "ev"), quoted("create index `idx_ev` on `ev` (`id`)"));
    EXPECT_EQ(MaxIdStatement(dialect, "ev", kShortBufferSize), quoted("select max(`id`) from `ev`"));
    EXPECT_EQ(CountStatement(dialect, "ev"), quoted("select count(*) from `ev`"));
    EXPECT_EQ(AllEntriesStatement(dialect, "ev"), quoted("select * from `ev` order by `id` asc"));
    EXPECT_EQ(TimeRangeStatement(dialect, "ev", 10, 4294967295u),
              quoted("select * from `ev` where (`logtime` >= 10) and (`logtime` <= 4294967295)"
                     " order by `id` asc"));
    // A backslash is doubled in the backtick dialect only.
    EXPECT_EQ(InsertStatement(dialect, "ev", 7, &record),
              quoted("insert into `ev` (`id`, `logtime`, `millisecond`, `logtype`, `source`, "
                     "`loginfo`, `operator`, `monitor`, `logverify`, `ip`, `ackinfo`, `batch`) "
                     "values(7, 1700000000, 250, 3, 'pump ''A''', '" +
                     std::string(backtick ? "C:\\\\data" : "C:\\data") + "', '" +
                     std::string(32, 'o') + "', '', '', 4294967295, '', '')"));
  }
}

TEST(LogStatements, LongStatementsAreCutToTheirBuffer) {
  const SqlDialect dialect = SqlDialect::Backtick;
  EXPECT_EQ(CreateIndexStatement(dialect, std::string(112, 'n').c_str()).size(), 255u);
  // The same name fits logSetLog's buffer but is cut in logGetLastID's.
  const std::string name(300, 'n');
  EXPECT_EQ(MaxIdStatement(dialect, name.c_str(), kLongBufferSize).size(), 324u);
  EXPECT_EQ(MaxIdStatement(dialect, name.c_str(), kShortBufferSize).size(), 255u);

  // Every text at its full width fits; doubled quotes push it past 1,200 characters.
  LogRecord record = SampleRecord();
  std::memset(record.source, 's', sizeof record.source - 1);
  std::memset(record.loginfo, '\'', sizeof record.loginfo - 1);
  std::memset(record.monitor, 'm', sizeof record.monitor - 1);
  std::memset(record.logverify, 'v', sizeof record.logverify - 1);
  std::memset(record.ackinfo, 'a', sizeof record.ackinfo - 1);
  std::memset(record.batch, 'b', sizeof record.batch - 1);
  unsigned char bytes[1 + sizeof record];  // unaligned, as the caller's buffer may place it
  std::memcpy(bytes + 1, &record, sizeof record);
  const std::string insert = InsertStatement(dialect, "ev", 1, bytes + 1);
  EXPECT_EQ(insert.size(), 1023u);
  EXPECT_EQ(insert.substr(insert.size() - 10), std::string(10, 'a'));
}

}  // namespace
}  // namespace scadastore::log
