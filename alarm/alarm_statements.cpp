#include "alarm/alarm_statements.h"

#include <cstddef>

#include "alarm/alarm_record.h"
#include "core/bytes.h"
#include "core/common_statements.h"
#include "core/sql_text.h"
#include "scadastore.h"

namespace scadastore::alarm {
namespace {

constexpr size_t kNameWidth = 32;  // station and tag texts of a query

std::string_view Text(const void* base, size_t offset, size_t width) {
  return FieldText(static_cast<const char*>(base) + offset, width);
}

// " or " between the items; one item takes its bare form, several their
// parenthesised form. `item(i, parenthesised)` builds entry i.
template <class Item>
Statement JoinItems(Statement condition, uint32_t count, Item&& item) {
  for (uint32_t i = 0; i < count; ++i) {
    if (i > 0) condition += {" or "};
    condition += item(i, count > 1);
  }
  condition += {")"};
  return condition;
}

// The one list condition of a query: the first set list bit in the order
// types, stations, station tags, points decides, even when its list is empty.
// Station and tag texts are bound values.
Statement ListCondition(SqlDialect dialect, const void* query) {
  const uint32_t filter = LoadField<uint32_t>(query, offsetof(AlarmQuery, filter));
  const uint32_t typeCount = LoadField<uint32_t>(query, offsetof(AlarmQuery, typeCount));
  const uint32_t stationCount = LoadField<uint32_t>(query, offsetof(AlarmQuery, stationCount));
  const uint32_t tagCount = LoadField<uint32_t>(query, offsetof(AlarmQuery, tagCount));
  const uint32_t pointCount = LoadField<uint32_t>(query, offsetof(AlarmQuery, pointCount));
  const size_t typesAt = sizeof(AlarmQuery);
  const size_t stationsAt = typesAt + size_t{4} * typeCount;
  const size_t tagsAt = stationsAt + kNameWidth * stationCount;
  const size_t pointsAt = tagsAt + kNameWidth * tagCount;
  // "`name` = " and the bound text, parenthesised or bare.
  auto equals = [&](const char* name, size_t at, bool parenthesised) {
    Statement item{std::string(parenthesised ? "(" : "") + OpenQuote(dialect) + name +
                   CloseQuote(dialect) + " = "};
    item.AppendText(Text(query, at, kNameWidth));
    if (parenthesised) item += {")"};
    return item;
  };

  if (filter & SCADASTORE_FILTER_ALARM_TYPES) {
    if (typeCount == 0) return {};
    return JoinItems({" and ("}, typeCount, [&](uint32_t i, bool parenthesised) {
      // The stored type is unsigned: the list's bits compare as written.
      const uint32_t type = LoadField<uint32_t>(query, typesAt + 4 * size_t{i});
      return FormatStatement(dialect, kStatementSize,
                             parenthesised ? "(`alarmtype` = %u)" : "`alarmtype` = %u", type);
    });
  }
  if (filter & SCADASTORE_FILTER_STATIONS) {
    if (stationCount == 0) return {};
    return JoinItems({" and ("}, stationCount, [&](uint32_t i, bool parenthesised) {
      return equals("station", stationsAt + kNameWidth * i, parenthesised);
    });
  }
  if (filter & SCADASTORE_FILTER_STATION_TAGS) {
    if (stationCount != 1 || tagCount == 0) return {};
    Statement opening{" and "};
    opening += equals("station", stationsAt, true);
    opening += {" and ("};
    return JoinItems(std::move(opening), tagCount, [&](uint32_t i, bool parenthesised) {
      return equals("tag", tagsAt + kNameWidth * i, parenthesised);
    });
  }
  if (filter & SCADASTORE_FILTER_POINTS) {
    if (pointCount == 0) return {};
    return JoinItems({" and ("}, pointCount, [&](uint32_t i, bool parenthesised) {
      const size_t at = pointsAt + sizeof(PointKey) * i;
      const int tagtype = LoadField<uint16_t>(query, at + offsetof(PointKey, tagtype));
      Statement item{parenthesised ? "(" : ""};
      item += equals("station", at + offsetof(PointKey, station), true);
      item += {" and "};
      item += equals("tag", at + offsetof(PointKey, tag), true);
      item += FormatStatement(dialect, kStatementSize, parenthesised ? " and (`tagtype` = %d))"
                                                                      : " and (`tagtype` = %d)",
                              tagtype);
      return item;
    });
  }
  return {};
}

}  // namespace

Statement CreateTableStatement(DbKind kind, const char* table) {
  return CreateFixedTableStatement(
      kind, table,
      "`id` integer NOT NULL PRIMARY KEY, `station` varchar(32), `tag` varchar(32), "
      "`tagtype` integer, `alarmtype` integer, `value` float, `status` integer, "
      "`recovertime` integer, `arisetime` integer, `ip` integer, `description` varchar(128), "
      "`millisecond` integer, `batch` varchar(64), `alarmlevel` integer, `rsvd` varchar(128)");
}

namespace {

Statement InsertHead(SqlDialect dialect, const char* table) {
  return FormatStatement(
      dialect, kWriteBufferSize,
      "insert into `%s` (`id`, `station`, `tag`, `tagtype`, `alarmtype`, `value`, `status`, "
      "`recovertime`, `arisetime`, `ip`, `description`, `millisecond`, `batch`, `alarmlevel`) "
      "values",
      table);
}

// "(id, ...)": the values of one alarm.
Statement InsertRow(SqlDialect dialect, uint32_t id, const void* record) {
  auto number = [&](size_t offset) { return LoadField<uint32_t>(record, offset); };
  auto text = [&](size_t offset, size_t width) { return Text(record, offset, width); };
  // The value travels in single precision, printed from the float.
  const double value = static_cast<float>(StoredValue(record));
  Statement row = FormatStatement(dialect, kWriteBufferSize, "(%u, ", id);
  row.AppendText(text(offsetof(AlarmRecord, station), sizeof(AlarmRecord::station)));
  row += {", "};
  row.AppendText(text(offsetof(AlarmRecord, tag), sizeof(AlarmRecord::tag)));
  row += FormatStatement(dialect, kWriteBufferSize, ", %u, %u, %.17g, %u, %u, %u, %u, ",
                         number(offsetof(AlarmRecord, tagtype)),
                         number(offsetof(AlarmRecord, alarmtype)), value,
                         number(offsetof(AlarmRecord, status)),
                         number(offsetof(AlarmRecord, recovertime)),
                         number(offsetof(AlarmRecord, arisetime)), number(offsetof(AlarmRecord, ip)));
  row.AppendText(text(offsetof(AlarmRecord, description), sizeof(AlarmRecord::description)));
  row += FormatStatement(dialect, kWriteBufferSize, ", %u, ",
                         number(offsetof(AlarmRecord, millisecond)));
  row.AppendText(text(offsetof(AlarmRecord, batch), sizeof(AlarmRecord::batch)));
  row += FormatStatement(dialect, kWriteBufferSize, ", %u)",
                         number(offsetof(AlarmRecord, alarmlevel)));
  return row;
}

}  // namespace

Statement InsertStatement(DbKind kind, const char* table, uint32_t id, const void* record) {
  Statement insert = InsertHead(DialectOf(kind), table);
  insert += InsertRow(DialectOf(kind), id, record);
  return insert.Bound(kWriteBufferSize);
}

namespace {

void FillRow(const void* record, uint32_t id, DbConnection::Parameter* values) {
  auto number = [&](size_t offset) { return LoadField<uint32_t>(record, offset); };
  auto text = [&](size_t offset, size_t width) { return Text(record, offset, width); };
  SetInteger(values[0], id);
  SetText(values[1], text(offsetof(AlarmRecord, station), sizeof(AlarmRecord::station)));
  SetText(values[2], text(offsetof(AlarmRecord, tag), sizeof(AlarmRecord::tag)));
  SetInteger(values[3], number(offsetof(AlarmRecord, tagtype)));
  SetInteger(values[4], number(offsetof(AlarmRecord, alarmtype)));
  SetDouble(values[5], static_cast<float>(StoredValue(record)));
  SetInteger(values[6], number(offsetof(AlarmRecord, status)));
  SetInteger(values[7], number(offsetof(AlarmRecord, recovertime)));
  SetInteger(values[8], number(offsetof(AlarmRecord, arisetime)));
  SetInteger(values[9], number(offsetof(AlarmRecord, ip)));
  SetText(values[10], text(offsetof(AlarmRecord, description), sizeof(AlarmRecord::description)));
  SetInteger(values[11], number(offsetof(AlarmRecord, millisecond)));
  SetText(values[12], text(offsetof(AlarmRecord, batch), sizeof(AlarmRecord::batch)));
  SetInteger(values[13], number(offsetof(AlarmRecord, alarmlevel)));
}

}  // namespace

const FixedRecordInserts kInserts{kWriteBufferSize, 14, InsertHead, InsertStatement, FillRow};

Statement ConfirmStatement(DbKind kind, const char* table, uint32_t status, uint32_t id) {
  return FormatStatement(DialectOf(kind), kStatementSize, "update `%s` set `status`=%u where `id`=%u", table,
                         status, id);
}

Statement RecoverStatement(DbKind kind, const char* table, uint32_t recovertime, uint32_t id) {
  return FormatStatement(DialectOf(kind), kStatementSize, "update `%s` set `recovertime`=%u where `id`=%u",
                         table, recovertime, id);
}

Statement QueryStatement(DbKind kind, const char* table, const void* query) {
  const SqlDialect dialect = DialectOf(kind);
  const uint32_t filter = LoadField<uint32_t>(query, offsetof(AlarmQuery, filter));
  const int minimumLevel = static_cast<int>((filter >> 8) & 0xFF);
  Statement sql = FormatStatement(
      dialect, kStatementSize, "select * from `%s` where (`arisetime` >= %u) and (`arisetime` <= %u)",
      table, LoadField<uint32_t>(query, offsetof(AlarmQuery, startTime)),
      LoadField<uint32_t>(query, offsetof(AlarmQuery, endTime)));
  if (minimumLevel != 0)
    sql += FormatStatement(dialect, kStatementSize, " and (`alarmlevel` >= %d)", minimumLevel);
  sql += ListCondition(dialect, query);
  sql += FormatStatement(dialect, kStatementSize, " order by `id` asc");
  return sql;
}

}  // namespace scadastore::alarm
