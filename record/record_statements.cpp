#include "record/record_statements.h"

#include <algorithm>
#include <charconv>

#include "core/common_statements.h"
#include "core/exact_double.h"
#include "core/sql_text.h"

namespace scadastore::record {
namespace {

void AppendQuoted(std::string& out, SqlDialect dialect, std::string_view name) {
  out += OpenQuote(dialect);
  out += name;
  out += CloseQuote(dialect);
}

void AppendNumber(Statement& out, uint32_t number) {
  char digits[16];
  auto end = std::to_chars(digits, digits + sizeof digits, number);
  out += {std::string(digits, end.ptr)};
}

// MariaDB (kind 2) reads ` float` as 4 bytes: a sample's double needs ` double` there.
const char* ColumnType(DbKind kind, uint32_t type) {
  switch (type) {
    case SCADASTORE_VALUE_INTEGER: return " integer";
    case SCADASTORE_VALUE_TEXT: return " varchar(64)";
    default: return HasTableOptions(kind) ? " double" : " float";
  }
}

// Columns of other codes carry no value: writing their name with an empty
// value would only make every statement fail, so the writers leave them out
// and the database keeps them NULL.
bool CarriesValue(const ColumnLayout& column) { return column.width != 0; }

// Appends "," and each value column's quoted name while the text, counted
// from `start`, stays below `limit`.
bool AppendColumnNames(std::string& text, size_t start, size_t limit, SqlDialect dialect,
                       const std::vector<ColumnLayout>& columns) {
  for (const ColumnLayout& column : columns) {
    if (!CarriesValue(column)) continue;
    if (text.size() - start >= limit) return false;
    text += ',';
    AppendQuoted(text, dialect, column.name);
  }
  return true;
}

// Appends "," and each value while the shown text, counted from `start`,
// stays below `limit`.
bool AppendValues(Statement& out, size_t start, size_t limit,
                  const std::vector<ColumnLayout>& columns, const void* record) {
  for (const ColumnLayout& column : columns) {
    if (!CarriesValue(column)) continue;
    if (out.text.size() - start >= limit) return false;
    out += {","};
    AppendValue(out, column, record);
  }
  return true;
}

// "id,time,ms,0": the fixed fields of a new record, whatever its own id and modify hold.
void AppendNewHead(Statement& out, const void* record, uint32_t id) {
  const RecordHead head = LoadHead(record);
  AppendNumber(out, id);
  out += {","};
  AppendNumber(out, head.time);
  out += {","};
  AppendNumber(out, head.ms);
  out += {",0"};
}

// "(id,time,ms,0,values...)": a new record's row of a batch.
bool AppendRow(Statement& out, size_t start, const TableLayout& table, const void* record,
               uint32_t id) {
  out += {"("};
  AppendNewHead(out, record, id);
  if (!AppendValues(out, start, kStatementBufferSize, table.columns, record)) return false;
  out += {")"};
  return out.text.size() - start < kStatementBufferSize;
}

size_t TextColumns(const TableLayout& table) {
  return std::count_if(table.columns.begin(), table.columns.end(), [](const ColumnLayout& column) {
    return column.type == SCADASTORE_VALUE_TEXT;
  });
}

// "insert into `t` (`id`,`time`,`ms`,`modify`,...) values ", or under kind 4
// the INTO clause head that INSERT ALL repeats for every row (always double
// quotes there, as it repeats the column list); "" when it outgrows its buffer.
std::string BatchHeader(DbKind kind, const TableLayout& table) {
  const bool insertAll = kind == 4;
  const SqlDialect dialect = insertAll ? SqlDialect::DoubleQuote : DialectOf(kind);
  std::string columns =
      FormatStatement(dialect, kLookupStatementSize,
                      insertAll ? "INTO `%s` (`id`,`time`,`ms`,`modify`"
                                : "insert into `%s` (`id`,`time`,`ms`,`modify`",
                      table.name.c_str())
          .text;
  if (!AppendColumnNames(columns, 0, kStatementBufferSize, dialect, table.columns)) return {};
  columns += ") values ";
  return columns.size() < kStatementBufferSize ? columns : std::string();
}

// The longest shown row a value of `column` can make: a double's 24
// characters, a text's doubled quotes.
size_t LongestValue(const ColumnLayout& column) {
  switch (column.type) {
    case SCADASTORE_VALUE_FLOAT: return 25;
    case SCADASTORE_VALUE_INTEGER: return 2;
    default: return CarriesValue(column) ? 3 + 2 * size_t{column.width} : 0;
  }
}

}  // namespace

Statement CreateTableStatement(DbKind kind, const TableLayout& table) {
  const SqlDialect dialect = DialectOf(kind);
  const char* unsignedType = UnsignedType(kind);
  Statement create = FormatStatement(
      dialect, kLookupStatementSize, "create table `%s` (`id`%s NOT NULL PRIMARY KEY,`time`%s,`ms`%s,`modify`%s",
      table.name.c_str(), unsignedType, unsignedType, unsignedType, unsignedType);
  std::string& text = create.text;
  for (const ColumnLayout& column : table.columns) {
    if (text.size() >= kStatementLimit) {
      create.complete = false;
      return create;
    }
    text += ',';
    AppendQuoted(text, dialect, column.name);
    text += ColumnType(kind, column.type);
  }
  text += ')';
  text += TableOptions(kind);
  return create;
}

Statement InsertStatement(DbKind kind, const TableLayout& table, const void* record,
                          uint32_t size, uint32_t id) {
  if (size != table.recordSize || !table.HoldsValues()) return {{}, false};
  const SqlDialect dialect = DialectOf(kind);
  Statement insert = FormatStatement(dialect, kLookupStatementSize,
                                     "insert into `%s` (`id`,`time`,`ms`,`modify`",
                                     table.name.c_str());
  if (!AppendColumnNames(insert.text, 0, kStatementLimit, dialect, table.columns)) {
    insert.complete = false;
    return insert;
  }
  insert += {") values("};
  AppendNewHead(insert, record, id);
  if (!AppendValues(insert, 0, kStatementLimit, table.columns, record)) {
    insert.complete = false;
    return insert;
  }
  insert += {")"};
  return insert.Bound(kStatementBufferSize);
}

Statement BatchStatement(DbKind kind, const TableLayout& table, const void* buffer, uint32_t size,
                         uint32_t firstId) {
  const Statement refused{{}, false};
  if (table.recordSize == 0 || table.recordSize > size || !table.HoldsValues()) return refused;
  const uint32_t count = size / table.recordSize;
  if (count * TextColumns(table) > kBatchTextLimit) return refused;
  const bool insertAll = kind == 4;
  const std::string columns = BatchHeader(kind, table);
  if (columns.empty()) return refused;

  Statement batch{insertAll ? "INSERT ALL " : columns};
  const auto* records = static_cast<const unsigned char*>(buffer);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t pieceStart = batch.text.size();
    if (insertAll) batch += {columns};
    if (!AppendRow(batch, pieceStart, table, records + size_t{i} * table.recordSize, firstId + i))
      return refused;
    if (i + 1 < count) batch += {insertAll ? " " : ","};
    // Rows are alike in length: room for all of them once the first is known.
    if (i == 0) {
      const size_t room = std::max(kBatchReserve, pieceStart + count * (batch.text.size() - pieceStart) * 9 / 8);
      batch.text.reserve(room);
      if (!batch.texts.empty()) batch.sql.reserve(room);
    }
  }
  if (insertAll) batch += {"SELECT * FROM DUAL;"};
  return batch;
}

bool BatchBuilds(DbKind kind, const TableLayout& table, const void* buffer, uint32_t size) {
  if (table.recordSize == 0 || table.recordSize > size || !table.HoldsValues() ||
      size / table.recordSize * TextColumns(table) > kBatchTextLimit)
    return false;
  const std::string header = BatchHeader(kind, table);
  if (header.empty()) return false;
  size_t longestRow = 4 * 11 + 2 + (kind == 4 ? header.size() : 0);
  for (const ColumnLayout& column : table.columns) longestRow += LongestValue(column);
  return longestRow < kStatementBufferSize || BatchStatement(kind, table, buffer, size, 1).complete;
}

size_t BatchParameters(const TableLayout& table) {
  return 3 + std::count_if(table.columns.begin(), table.columns.end(), CarriesValue);
}

std::string BatchInsertSql(DbKind kind, const TableLayout& table, uint32_t rows) {
  std::string row = "(?,?,?,0";
  for (size_t i = 3; i < BatchParameters(table); ++i) row += ",?";
  row += ")";
  const std::string header = BatchHeader(kind, table);
  if (kind != 4) {
    std::string sql = header + row;
    for (uint32_t i = 1; i < rows; ++i) sql += "," + row;
    return sql;
  }
  std::string sql = "INSERT ALL ";
  for (uint32_t i = 0; i < rows; ++i) sql += header + row + (i + 1 < rows ? " " : "");
  return sql + "SELECT * FROM DUAL;";
}

void BatchRow(const TableLayout& table, const void* record, uint32_t id,
              DbConnection::Parameter* values) {
  const RecordHead head = LoadHead(record);
  values[0].integer = id;
  values[1].integer = head.time;
  values[2].integer = head.ms;
  DbConnection::Parameter* value = values + 3;
  for (const ColumnLayout& column : table.columns)
    if (CarriesValue(column)) BindableValue(*value++, column, record);
}

namespace {

// The rows' columns in the order of BatchRow's values, then `modify`.
std::string AddedRowsSelect(SqlDialect dialect, const TableLayout& table) {
  std::string select = DialectTemplate(dialect, "select `id`,`time`,`ms`");
  AppendColumnNames(select, 0, std::string::npos, dialect, table.columns);
  return select + DialectTemplate(dialect, ",`modify` from ") + QuoteName(dialect, table.name) +
         " where 1=0";
}

}  // namespace

BoundRows BatchRows(DbKind kind, const TableLayout& table, const unsigned char* records,
                    uint32_t firstId) {
  BoundRows rows{BatchParameters(table),
                 [kind, &table](uint32_t n) { return BatchInsertSql(kind, table, n); },
                 [&table, records, firstId](uint32_t i, DbConnection::Parameter* values) {
                   BatchRow(table, records + size_t{i} * table.recordSize, firstId + i, values);
                 },
                 true, {}, {}};
  // Under kind 4 the batch is its INSERT ALL statement, whatever the driver.
  if (kind == 4) return rows;
  const SqlDialect dialect = DialectOf(kind);
  rows.addClaim = "delete from " + QuoteName(dialect, table.name) + " where 1=0";
  rows.addSelect = AddedRowsSelect(dialect, table);
  return rows;
}

Statement UpdateStatement(DbKind kind, const TableLayout& table, const void* record, uint32_t id) {
  if (!table.HoldsValues()) return {{}, false};
  const SqlDialect dialect = DialectOf(kind);
  Statement update =
      FormatStatement(dialect, kLookupStatementSize, "update `%s` set `modify`=1", table.name.c_str());
  for (const ColumnLayout& column : table.columns) {
    if (!CarriesValue(column)) continue;
    if (update.text.size() >= kStatementLimit) {
      update.complete = false;
      return update;
    }
    std::string name = ",";
    AppendQuoted(name, dialect, column.name);
    update += {name + "="};
    AppendValue(update, column, record);
  }
  std::string where = " where ";
  AppendQuoted(where, dialect, "id");
  update += {where + "="};
  AppendNumber(update, id);
  return update.Bound(kStatementBufferSize);
}

Statement DeleteAllStatement(DbKind kind, const std::string& table) {
  return FormatStatement(DialectOf(kind), kStatementSize, "delete from `%s`", table.c_str());
}

Statement IntervalStatement(DbKind kind, const std::string& table, uint32_t startTime,
                            uint32_t endTime) {
  return FormatStatement(DialectOf(kind), kStatementSize,
                         "select * from `%s` where (`time`>=%u) and (`time`<=%u) order by `id` asc",
                         table.c_str(), startTime, endTime);
}

Statement IdsStatement(DbKind kind, const std::string& table) {
  return FormatStatement(DialectOf(kind), kStatementSize, "select `id` from `%s` order by `id` asc",
                         table.c_str());
}

Statement PageableStatement(DbKind kind, const std::string& table) {
  // Two lookups of the one table: a join of the two views would scan every database.
  const SqlDialect dialect = DialectOf(kind);
  Statement pageable = FormatStatement(
      dialect, kLookupStatementSize,
      "select (select `engine` from information_schema.tables where `table_schema`=database() "
      "and `table_name`=");
  pageable.AppendText(table);
  pageable += FormatStatement(
      dialect, kLookupStatementSize,
      ")='InnoDB' and (select count(*)=1 and min(`column_name`)='id' from "
      "information_schema.statistics where `index_name`='PRIMARY' and `table_schema`=database() "
      "and `table_name`=");
  pageable.AppendText(table);
  return pageable += FormatStatement(
             dialect, kLookupStatementSize,
             ") and not exists (select 1 from `%s` where `id`>4294967295)", table.c_str());
}

Statement PageStatement(DbKind kind, const std::string& table, const Statement& shown,
                        std::optional<uint32_t> afterId, uint32_t rows) {
  Statement page = shown;
  const std::string limit = " limit " + std::to_string(rows);
  if (!afterId) {
    page.sql = shown.text + limit;
    return page;
  }
  // `shown` goes on after its table name with " where" or " order by".
  const std::string from = "select * from " + QuoteName(DialectOf(kind), table);
  const std::string rest = shown.text.substr(from.size());
  std::string after = " where ";
  AppendQuoted(after, DialectOf(kind), "id");
  after += '>' + std::to_string(*afterId);
  const std::string where = " where ";
  page.sql = from + after +
             (rest.compare(0, where.size(), where) == 0 ? " and " + rest.substr(where.size()) : rest) +
             limit;
  return page;
}

std::string ExactFloatsSelect(const TableLayout& table, const std::string& select) {
  auto quoted = [](std::string_view name) {
    std::string out = "\"";
    for (char c : name) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + '"';
  };
  std::string outer = "select \"id\",\"time\",\"ms\",\"modify\"";
  for (const ColumnLayout& column : table.columns) {
    const bool isText = column.type == SCADASTORE_VALUE_TEXT || column.type == SCADASTORE_VALUE_INTEGER;
    outer += ',' + (isText ? quoted(column.name) : ExactSqliteDouble(quoted(column.name)));
  }
  return outer + " from (" + select + ")";
}

Statement PositionStatement(DbKind kind, bool onSqlite, const std::string& table,
                            const Statement& shown, uint32_t position) {
  Statement narrowed = shown;
  if (!shown.complete) return narrowed;
  const std::string selectFrom = shown.text.substr(0, shown.text.rfind(" order by "));
  // The whole statement is sent: a name that fits `shown` fits this buffer.
  const uint32_t bufferSize = static_cast<uint32_t>(2 * shown.text.size() + 256);
  if (HasLimitOffset(kind, onSqlite)) {
    narrowed.sql = shown.text + " limit 1 offset " + std::to_string(position - 1);
  } else {
    narrowed.sql =
        selectFrom + FormatStatement(DialectOf(kind), bufferSize,
                                     " where `id`=(select `id` from (select `id`,row_number() "
                                     "over (order by `id` asc) as `position` from `%s`) `p` "
                                     "where `position`=%u)",
                                     table.c_str(), position)
                         .text;
  }
  return narrowed;
}

}  // namespace scadastore::record
