#include "record/record_statements.h"

#include <algorithm>
#include <charconv>

#include "core/sql_text.h"

namespace scadastore::record {
namespace {

constexpr uint32_t kHeadBufferSize = kStatementLimit + 1;

void AppendQuoted(std::string& out, SqlDialect dialect, std::string_view name) {
  out += OpenQuote(dialect);
  out += name;
  out += CloseQuote(dialect);
}

void AppendNumber(std::string& out, uint32_t number) {
  char digits[16];
  auto end = std::to_chars(digits, digits + sizeof digits, number);
  out.append(digits, end.ptr);
}

const char* ColumnType(uint32_t type) {
  switch (type) {
    case SCADASTORE_VALUE_INTEGER: return " integer";
    case SCADASTORE_VALUE_TEXT: return " varchar(64)";
    default: return " float";
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

// Appends "," and each value's text while the text, counted from `start`,
// stays below `limit`.
bool AppendValues(std::string& text, size_t start, size_t limit, SqlDialect dialect,
                  const std::vector<ColumnLayout>& columns, const void* record) {
  for (const ColumnLayout& column : columns) {
    if (!CarriesValue(column)) continue;
    if (text.size() - start >= limit) return false;
    text += ',';
    AppendValueText(text, dialect, column, record);
  }
  return true;
}

// "id,time,ms,0": the fixed fields of a new record, whatever its own id and modify hold.
void AppendNewHead(std::string& text, const void* record, uint32_t id) {
  const RecordHead head = LoadHead(record);
  AppendNumber(text, id);
  text += ',';
  AppendNumber(text, head.time);
  text += ',';
  AppendNumber(text, head.ms);
  text += ",0";
}

// "(id,time,ms,0,values...)": a new record's row of a batch.
bool AppendRow(std::string& text, size_t start, SqlDialect dialect, const TableLayout& table,
               const void* record, uint32_t id) {
  text += '(';
  AppendNewHead(text, record, id);
  if (!AppendValues(text, start, kStatementBufferSize, dialect, table.columns, record)) return false;
  text += ')';
  return text.size() - start < kStatementBufferSize;
}

}  // namespace

std::string CreateTableStatement(DbKind kind, const TableLayout& table) {
  const SqlDialect dialect = DialectOf(kind);
  std::string text = FormatStatement(
      dialect, kHeadBufferSize,
      "create table `%s` (`id` integer NOT NULL PRIMARY KEY,`time` integer,`ms` integer,"
      "`modify` integer",
      table.name.c_str());
  for (const ColumnLayout& column : table.columns) {
    if (text.size() >= kStatementLimit) return text;
    text += ',';
    AppendQuoted(text, dialect, column.name);
    text += ColumnType(column.type);
  }
  text += ')';
  if (HasTableOptions(kind)) text += "ENGINE=InnoDB DEFAULT CHARSET=utf8";
  return text;
}

std::string CreateIndexStatement(SqlDialect dialect, const std::string& table) {
  return FormatStatement(dialect, kHeadBufferSize, "create index `idx_%s` on `%s` (`id`)",
                         table.c_str(), table.c_str());
}

std::string LargestIdStatement(SqlDialect dialect, const std::string& table) {
  return FormatStatement(dialect, kHeadBufferSize, "select max(`id`) from `%s`", table.c_str());
}

Statement InsertStatement(SqlDialect dialect, const TableLayout& table, const void* record,
                          uint32_t size, uint32_t id) {
  if (size != table.recordSize || !table.HoldsValues()) return {{}, false};
  Statement insert{FormatStatement(dialect, kHeadBufferSize,
                                   "insert into `%s` (`id`,`time`,`ms`,`modify`",
                                   table.name.c_str())};
  std::string& text = insert.text;
  text.reserve(kStatementBufferSize);
  insert.complete = AppendColumnNames(text, 0, kStatementLimit, dialect, table.columns);
  if (!insert.complete) return insert;
  text += ") values(";
  AppendNewHead(text, record, id);
  insert.complete = AppendValues(text, 0, kStatementLimit, dialect, table.columns, record);
  if (insert.complete) text += ')';
  return insert;
}

std::string BatchStatement(DbKind kind, const TableLayout& table, const void* buffer,
                           uint32_t size, uint32_t firstId) {
  if (table.recordSize == 0 || table.recordSize > size || !table.HoldsValues()) return {};
  const uint32_t count = size / table.recordSize;
  // INSERT ALL repeats the column list in every clause; the multi-row form
  // writes it once in its header.
  const bool insertAll = kind == 4;
  const SqlDialect dialect = insertAll ? SqlDialect::DoubleQuote : DialectOf(kind);
  std::string columns = FormatStatement(
      dialect, kHeadBufferSize,
      insertAll ? "INTO `%s` (`id`,`time`,`ms`,`modify`" : "insert into `%s` (`id`,`time`,`ms`,`modify`",
      table.name.c_str());
  if (!AppendColumnNames(columns, 0, kStatementBufferSize, dialect, table.columns)) return {};
  columns += ") values ";
  if (columns.size() >= kStatementBufferSize) return {};

  std::string text;
  text.reserve(kBatchReserve);
  text += insertAll ? "INSERT ALL " : columns;
  const auto* records = static_cast<const unsigned char*>(buffer);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t pieceStart = text.size();
    if (insertAll) text += columns;
    if (!AppendRow(text, pieceStart, dialect, table, records + size_t{i} * table.recordSize,
                   firstId + i))
      return {};
    if (i + 1 < count) text += insertAll ? ' ' : ',';
    // Rows are alike in length: room for all of them once the first is known.
    if (i == 0) {
      const size_t perRow = text.size() - pieceStart;
      text.reserve(std::max(kBatchReserve, pieceStart + count * (perRow + perRow / 8)));
    }
  }
  if (insertAll) text += "SELECT * FROM DUAL;";
  return text;
}

Statement UpdateStatement(SqlDialect dialect, const TableLayout& table, const void* record,
                          uint32_t id) {
  if (!table.HoldsValues()) return {{}, false};
  Statement update{
      FormatStatement(dialect, kHeadBufferSize, "update `%s` set `modify`=1", table.name.c_str())};
  std::string& text = update.text;
  text.reserve(kStatementBufferSize);
  for (const ColumnLayout& column : table.columns) {
    if (!CarriesValue(column)) continue;
    if (text.size() >= kStatementLimit) {
      update.complete = false;
      return update;
    }
    text += ',';
    AppendQuoted(text, dialect, column.name);
    text += '=';
    AppendValueText(text, dialect, column, record);
  }
  text += " where ";
  AppendQuoted(text, dialect, "id");
  text += '=';
  AppendNumber(text, id);
  return update;
}

std::string DeleteAllStatement(SqlDialect dialect, const std::string& table) {
  return FormatStatement(dialect, kShortStatementSize, "delete from `%s`", table.c_str());
}

std::string DeleteByIdStatement(SqlDialect dialect, const std::string& table, uint32_t id) {
  return FormatStatement(dialect, kShortStatementSize, "delete from `%s` where `id`=%u",
                         table.c_str(), id);
}

std::string WholeTableStatement(SqlDialect dialect, const std::string& table, uint32_t bufferSize) {
  return FormatStatement(dialect, bufferSize, "select * from `%s` order by `id` asc", table.c_str());
}

std::string IntervalStatement(SqlDialect dialect, const std::string& table, uint32_t startTime,
                              uint32_t endTime) {
  return FormatStatement(dialect, kShortStatementSize,
                         "select * from `%s` where (`time`>=%u) and (`time`<=%u) order by `id` asc",
                         table.c_str(), startTime, endTime);
}

std::string IdsStatement(SqlDialect dialect, const std::string& table) {
  return FormatStatement(dialect, kShortStatementSize, "select `id` from `%s` order by `id` asc",
                         table.c_str());
}

std::string CountStatement(SqlDialect dialect, const std::string& table) {
  return FormatStatement(dialect, kShortStatementSize, "select count(*) from `%s`", table.c_str());
}

}  // namespace scadastore::record
