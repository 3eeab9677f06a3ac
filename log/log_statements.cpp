#include "log/log_statements.h"

#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>

#include "core/common_statements.h"
#include "core/sql_text.h"
#include "scadastore.h"

namespace scadastore::log {

Statement CreateTableStatement(DbKind kind, const char* table) {
  return CreateFixedTableStatement(
      kind, table,
      "`id` integer NOT NULL PRIMARY KEY, `logtime` integer, `millisecond` integer, "
      "`logtype` integer, `source` varchar(64), `loginfo` varchar(250), `operator` varchar(32), "
      "`monitor` varchar(32), `logverify` varchar(64), `ip` integer, `ackinfo` varchar(250), "
      "`batch` varchar(64), `rsvd` varchar(128)");
}

Statement TimeRangeStatement(DbKind kind, const char* table, uint32_t startTime, uint32_t endTime) {
  return FormatStatement(DialectOf(kind), kLongBufferSize,
                         "select * from `%s` where (`logtime` >= %u) and (`logtime` <= %u)"
                         " order by `id` asc",
                         table, startTime, endTime);
}

Statement InsertStatement(DbKind kind, const char* table, uint32_t id, const void* record) {
  const SqlDialect dialect = DialectOf(kind);
  LogRecord entry;
  std::memcpy(&entry, record, sizeof entry);
  Statement insert = FormatStatement(
      dialect, kInsertBufferSize,
      "insert into `%s` (`id`, `logtime`, `millisecond`, `logtype`, `source`, `loginfo`, "
      "`operator`, `monitor`, `logverify`, `ip`, `ackinfo`, `batch`) values(%u, %u, %u, %u, ",
      table, id, entry.logtime, entry.millisecond, entry.logtype);
  const std::string_view texts[] = {
      FieldText(entry.source, sizeof entry.source),       FieldText(entry.loginfo, sizeof entry.loginfo),
      FieldText(entry.operator_, sizeof entry.operator_), FieldText(entry.monitor, sizeof entry.monitor),
      FieldText(entry.logverify, sizeof entry.logverify), FieldText(entry.ackinfo, sizeof entry.ackinfo),
      FieldText(entry.batch, sizeof entry.batch)};
  for (size_t i = 0; i < std::size(texts); ++i) {
    // The ip stands between logverify and ackinfo.
    if (i == 5) insert += FormatStatement(dialect, kInsertBufferSize, "%u, ", entry.ip);
    insert.AppendText(texts[i]);
    insert += {i + 1 < std::size(texts) ? ", " : ")"};
  }
  return insert.Bound(kInsertBufferSize);
}

}  // namespace scadastore::log
