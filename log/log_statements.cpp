#include "log/log_statements.h"

#include <cstddef>
#include <cstring>

#include "core/common_statements.h"
#include "core/sql_text.h"
#include "scadastore.h"

namespace scadastore::log {
namespace {

std::string Text(SqlDialect dialect, const char* field, size_t width) {
  return EscapeText(dialect, FieldText(field, width));
}

}  // namespace

Statement CreateTableStatement(DbKind kind, const char* table) {
  return FormatStatement(
      DialectOf(kind), kCreateBufferSize,
      "create table `%s` (`id` integer NOT NULL PRIMARY KEY, `logtime` integer, "
      "`millisecond` integer, `logtype` integer, `source` varchar(64), `loginfo` varchar(250), "
      "`operator` varchar(32), `monitor` varchar(32), `logverify` varchar(64), `ip` integer, "
      "`ackinfo` varchar(250), `batch` varchar(64), `rsvd` varchar(128))%s%s",
      table, HasTableOptions(kind) ? " " : "", TableOptions(kind));
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
  return FormatStatement(
      dialect, kInsertBufferSize,
      "insert into `%s` (`id`, `logtime`, `millisecond`, `logtype`, `source`, `loginfo`, "
      "`operator`, `monitor`, `logverify`, `ip`, `ackinfo`, `batch`) "
      "values(%u, %u, %u, %u, '%s', '%s', '%s', '%s', '%s', %u, '%s', '%s')",
      table, id, entry.logtime, entry.millisecond, entry.logtype,
      Text(dialect, entry.source, sizeof entry.source).c_str(),
      Text(dialect, entry.loginfo, sizeof entry.loginfo).c_str(),
      Text(dialect, entry.operator_, sizeof entry.operator_).c_str(),
      Text(dialect, entry.monitor, sizeof entry.monitor).c_str(),
      Text(dialect, entry.logverify, sizeof entry.logverify).c_str(), entry.ip,
      Text(dialect, entry.ackinfo, sizeof entry.ackinfo).c_str(),
      Text(dialect, entry.batch, sizeof entry.batch).c_str());
}

}  // namespace scadastore::log
