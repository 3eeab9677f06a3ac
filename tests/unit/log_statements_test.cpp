#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

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
  const std::pair<DbKind, const char*> kinds[] = {{2, "``"}, {1, "[]"}, {5, "\"\""}};
  for (const auto& [kind, quotes] : kinds) {
    SCOPED_TRACE(quotes);
    const bool backtick = kind == 2;
    // Expected texts are written with backticks and quoted here as the dialect quotes names.
    auto quoted = [&](std::string text) {
      for (size_t n = 0; char& c : text)
        if (c == '`') c = quotes[n++ % 2];
      return text;
    };
    EXPECT_EQ(CreateTableStatement(kind, "ev").text,
              quoted("create table `ev` (`id` integer NOT NULL PRIMARY KEY, `logtime` integer, "
                     "`millisecond` integer, `logtype` integer, `source` varchar(64), "
                     "`loginfo` varchar(250), `operator` varchar(32), `monitor` varchar(32), "
                     "`logverify` varchar(64), `ip` integer, `ackinfo` varchar(250), "
                     "`batch` varchar(64), `rsvd` varchar(128))") +
                  (backtick ? " ENGINE=InnoDB DEFAULT CHARSET=utf8" : ""));
    EXPECT_EQ(TimeRangeStatement(kind, "ev", 10, 4294967295u).text,
              quoted("select * from `ev` where (`logtime` >= 10) and (`logtime` <= 4294967295)"
                     " order by `id` asc"));
    // Shown with quotes doubled, sent as bound values in every dialect.
    const Statement insert = InsertStatement(kind, "ev", 7, &record);
    const std::string head =
        quoted("insert into `ev` (`id`, `logtime`, `millisecond`, `logtype`, `source`, "
               "`loginfo`, `operator`, `monitor`, `logverify`, `ip`, `ackinfo`, `batch`) "
               "values(7, 1700000000, 250, 3, ");
    EXPECT_EQ(insert.text, head + "'pump ''A''', 'C:\\data', '" + std::string(32, 'o') +
                               "', '', '', 4294967295, '', '')");
    EXPECT_EQ(insert.sql, head + "?, ?, ?, ?, ?, 4294967295, ?, ?)");
    EXPECT_EQ(insert.texts, (std::vector<std::string>{"pump 'A'", "C:\\data", std::string(32, 'o'),
                                                      "", "", "", ""}));
  }
}

TEST(LogStatements, InsertIsCutToItsBuffer) {
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
  const Statement insert = InsertStatement(2, "ev", 1, bytes + 1);
  EXPECT_FALSE(insert.complete);
  EXPECT_EQ(insert.text.size(), 1023u);
  EXPECT_EQ(insert.text.substr(insert.text.size() - 10), std::string(10, 'a'));
}

}  // namespace
}  // namespace scadastore::log
