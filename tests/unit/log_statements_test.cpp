// The shown texts; the databases run the statements in every dialect
// (tests/integration).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "log/log_statements.h"
#include "scadastore.h"

namespace scadastore::log {
namespace {

TEST(LogStatements, CreateAndShownInsert) {
  EXPECT_EQ(CreateTableStatement(2, "ev").text,
            "create table `ev` (`id` bigint NOT NULL PRIMARY KEY, `logtime` bigint, "
            "`millisecond` bigint, `logtype` bigint, `source` varchar(64), "
            "`loginfo` varchar(250), `operator` varchar(32), `monitor` varchar(32), "
            "`logverify` varchar(64), `ip` bigint, `ackinfo` varchar(250), "
            "`batch` varchar(64), `rsvd` varchar(128)) ENGINE=InnoDB DEFAULT CHARSET=utf8 "
            "COLLATE=utf8_nopad_bin");
  // The caller's id (99) never reaches the statement, nor does rsvd.
  LogRecord record{99, 1700000000, 250,         3,  "pump 'A'", "C:\\data",      "op",
                   "", "",         4294967295u, "", "",         "never written", {}};
  unsigned char bytes[1 + sizeof record];  // unaligned, as the caller's buffer may place it
  std::memcpy(bytes + 1, &record, sizeof record);
  EXPECT_EQ(InsertStatement(1, "ev", 7, bytes + 1).text,
            "insert into [ev] ([id], [logtime], [millisecond], [logtype], [source], [loginfo], "
            "[operator], [monitor], [logverify], [ip], [ackinfo], [batch]) values(7, 1700000000, "
            "250, 3, 'pump ''A''', 'C:\\data', 'op', '', '', 4294967295, '', '')");
  EXPECT_NE(TimeRangeStatement(2, "ev", 10, 4294967295u).text.find("`logtime` <= 4294967295)"),
            std::string::npos);
}

}  // namespace
}  // namespace scadastore::log#include "log/log_statements.h"
#include "scadastore.h"

