#include "log/log_statements.h"

#include <array>
#include <cstddef>
#include <cstring>
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

namespace {

Statement InsertHead(SqlDialect dialect, const char* table) {
  return FormatStatement(
      dialect, kInsertBufferSize,
      "insert into `%s` (`id`, `logtime`, `millisecond`, `logtype`, `source`, `loginfo`, "
      "`operator`, `monitor`, `logverify`, `ip`, `ackinfo`, `batch`) values",
      table);
}

// The texts of an entry in the order of its columns; the ip stands between
// the fifth and the sixth.
std::array<std::string_view, 7> Texts(const LogRecord& entry) {
  return {FieldText(entry.source, sizeof entry.source),
          FieldText(entry.loginfo, sizeof entry.loginfo),
          FieldText(entry.operator_, sizeof entry.operator_),
          FieldText(entry.monitor, sizeof entry.monitor),
          FieldText(entry.logverify, sizeof entry.logverify),
          FieldText(entry.ackinfo, sizeof entry.ackinfo),
          FieldText(entry.batch, sizeof entry.batch)};
}

// "(id, ...)": the values of one entry.
Statement InsertRow(SqlDialect dialect, uint32_t id, const void* record) {
  LogRecord entry;
  std::memcpy(&entry, record, sizeof entry);
  Statement row = FormatStatement(dialect, kInsertBufferSize, "(%u, %u, %u, %u, ", id,
                                  entry.logtime, entry.millisecond, entry.logtype);
  const auto texts = Texts(entry);
  for (size_t i = 0; i < texts.size(); ++i) {
    if (i == 5) row += FormatStatement(dialect, kInsertBufferSize, "%u, ", entry.ip);
    row.AppendText(texts[i]);
    row += {i + 1 < texts.size() ? ", " : ")"};
  }
  return row;
}

void FillRow(const void* record, uint32_t id, DbConnection::Parameter* values) {
  LogRecord entry;
  std::memcpy(&entry, record, sizeof entry);
  SetInteger(values[0], id);
  SetInteger(values[1], entry.logtime);
  SetInteger(values[2], entry.millisecond);
  SetInteger(values[3], entry.logtype);
  DbConnection::Parameter* value = values + 4;
  const auto texts = Texts(entry);
  for (size_t i = 0; i < texts.size(); ++i) {
    if (i == 5) SetInteger(*value++, entry.ip);
    SetText(*value++, texts[i]);
  }
}

}  // namespace

Statement InsertStatement(DbKind kind, const char* table, uint32_t id, const void* record) {
  Statement insert = InsertHead(DialectOf(kind), table);
  insert += InsertRow(DialectOf(kind), id, record);
  return insert.Bound(kInsertBufferSize);
}

const FixedRecordInserts kInserts{kInsertBufferSize, 12, InsertHead, InsertStatement, FillRow};

}  // namespace scadastore::log
