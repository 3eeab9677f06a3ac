#include "record/record_statements.h"

#include <algorithm>
#include <charconv>

#include "core/common_statements.h"
#include "core/sql_text.h"

namespace scadastore::record {
namespace {

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

Statement CreateTableStatement(DbKind kind, const TableLayout& table) {
  const SqlDialect dialect = DialectOf(kind);
  Statement create = FormatStatement(
      dialect, kLookupStatementSize,
      "create table `%s` (`id` integer NOT NULL PRIMARY KEY,`time` integer,`ms` integer,"
      "`modify` integer",
      table.name.c_str());
  std::string& text = create.text;
  for (const ColumnLayout& column : table.columns) {
    if (text.size() >= kStatementLimit) {
      create.complete = false;
      return create;
    }
    text += ',';
    AppendQuoted(text, dialect, column.name);
    text += ColumnType(column.type);
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

Statement BatchStatement(DbKind kind, const TableLayout& table, const void* buffer, uint32_t size,
                         uint32_t firstId) {
  const Statement refused{{}, false};
  if (table.recordSize == 0 || table.recordSize > size || !table.HoldsValues()) return refused;
  const uint32_t count = size / table.recordSize;
  // INSERT ALL repeats the column list in every clause; the multi-row form
  // writes it once in its header.
  const bool insertAll = kind == 4;
  const SqlDialect dialect = insertAll ? SqlDialect::DoubleQuote : DialectOf(kind);
  std::string columns =
      FormatStatement(dialect, kLookupStatementSize,
                      insertAll ? "INTO `%s` (`id`,`time`,`ms`,`modify`"
                                : "insert into `%s` (`id`,`time`,`ms`,`modify`",
                      table.name.c_str())
          .text;
  if (!AppendColumnNames(columns, 0, kStatementBufferSize, dialect, table.columns)) return refused;
  columns += ") values ";
  if (columns.size() >= kStatementBufferSize) return refused;

  std::string text;
  text.reserve(kBatchReserve);
  text += insertAll ? "INSERT ALL " : columns;
  const auto* records = static_cast<const unsigned char*>(buffer);
  for (uint32_t i = 0; i < count; ++i) {
    const size_t pieceStart = text.size();
    if (insertAll) text += columns;
    if (!AppendRow(text, pieceStart, dialect, table, records + size_t{i} * table.recordSize,
                   firstId + i))
      return refused;
    if (i + 1 < count) text += insertAll ? ' ' : ',';
    // Rows are alike in length: room for all of them once the first is known.
    if (i == 0) {
      const size_t perRow = text.size() - pieceStart;
      text.reserve(std::max(kBatchReserve, pieceStart + count * (perRow + perRow / 8)));
    }
  }
  if (insertAll) text += "SELECT * FROM DUAL;";
  return {std::move(text)};
}

Statement UpdateStatement(DbKind kind, const TableLayout& table, const void* record, uint32_t id) {
  if (!table.HoldsValues()) return {{}, false};
  const SqlDialect dialect = DialectOf(kind);
  Statement update =
      FormatStatement(dialect, kLookupStatementSize, "update `%s` set `modify`=1", table.name.c_str());
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

}  // namespace scadastore::record
