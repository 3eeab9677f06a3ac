#include "core/batch_insert.h"

#include <algorithm>
#include <vector>

namespace scadastore {

Transaction::~Transaction() {
  if (!open_) return;
  if (!committed_ && db_.Unreachable()) {
    // The server ends a lost session's transaction; the session is not used
    // again, and the failure keeps its own text.
    db_.DoNotPool();
    return;
  }
  if (!committed_) db_.EndTransaction(false);
  db_.SetAutocommit(true);
}

uint32_t RowsPerStatement(size_t parametersPerRow) {
  constexpr size_t kRows = 500, kParameters = 2000;
  return static_cast<uint32_t>(
      std::clamp<size_t>(kParameters / std::max<size_t>(parametersPerRow, 1), 1, kRows));
}

namespace {

// The longest insert the SQLite driver may build to add rows. Its text
// buffer (SQLite3 ODBC 0.9998) starts at 256 bytes and was overrun from about
// 238 characters on (valgrind, tables of one and eight columns named with 1
// to 200 characters); its insert, "INSERT INTO "t" ("c",...) VALUES (?,...)",
// is as long as the select of the same names plus two characters a column and
// one.
constexpr size_t kLongestAddedInsert = 200;

// The columns of the rows the driver adds itself, 0 where each slice runs as
// a statement: texts would need buffers of their own, and only the SQLite
// driver compiles a statement again at every run.
uint16_t AddedColumns(DbConnection& db, const BoundRows& rows, uint32_t count) {
  if (rows.addSelect.empty() || count == 0 || !db.OnSqlite()) return 0;
  std::vector<DbConnection::Parameter> first(rows.parametersPerRow);
  rows.fill(0, first.data());
  for (const DbConnection::Parameter& value : first)
    if (value.type == DbConnection::Parameter::Type::Text) return 0;
  // Each quote in a name may be doubled.
  const size_t quotes = std::count(rows.addSelect.begin(), rows.addSelect.end(), '"');
  if (rows.addSelect.size() + quotes + 2 * (rows.parametersPerRow + 1) + 1 > kLongestAddedInsert)
    return 0;
  const int columns = db.OpenForAdding(rows.addClaim.c_str(), rows.addSelect.c_str());
  return columns == static_cast<int>(rows.parametersPerRow) + 1 ? static_cast<uint16_t>(columns)
                                                                 : 0;
}

}  // namespace

bool InsertSlices(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom) {
  failedFrom = 0;
  const uint16_t added = AddedColumns(db, rows, count);
  const size_t perRow = added ? added : rows.parametersPerRow;
  std::vector<DbConnection::Parameter> values;
  uint32_t prepared = 0;  // rows of the prepared statement or of the added slice
  for (uint32_t first = 0; first < count; first += prepared) {
    failedFrom = first;
    // Added rows are sliced as statements are, so a failure shows the same rows.
    const uint32_t most = rows.multiRow ? RowsPerStatement(rows.parametersPerRow) : 1;
    const uint32_t slice = std::min(most, count - first);
    const bool fresh = slice != prepared;
    if (fresh) {
      if (!added && !db.Prepare(rows.sqlOf(slice).c_str())) return false;
      prepared = slice;
      values.assign(slice * perRow, {});
    }
    for (uint32_t r = 0; r < slice; ++r) rows.fill(first + r, &values[r * perRow]);
    if (added) {
      if (!db.AddRows(values.data(), added, slice)) return false;
      continue;
    }
    // Numbers stay bound where they are; a text is bound again only when
    // it outgrows the buffer bound before.
    for (size_t i = 0; i < values.size(); ++i) {
      if ((fresh || values[i].type == DbConnection::Parameter::Type::Text) &&
          !db.Bind(static_cast<uint16_t>(i + 1), values[i]))
        return false;
    }
    if (!db.RunPrepared()) return false;
  }
  return true;
}

bool InsertAllOrNone(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom) {
  failedFrom = 0;
  Transaction transaction(db);
  if (!transaction.open() || !InsertSlices(db, rows, count, failedFrom)) return false;
  failedFrom = 0;
  return transaction.Commit();
}

void SetInteger(DbConnection::Parameter& value, int64_t number) {
  value.type = DbConnection::Parameter::Type::Integer;
  value.integer = number;
}

void SetDouble(DbConnection::Parameter& value, double number) {
  value.type = DbConnection::Parameter::Type::Double;
  value.real = number;
}

void SetText(DbConnection::Parameter& value, std::string_view text) {
  value.type = DbConnection::Parameter::Type::Text;
  value.text.assign(text);
}

BoundRows FixedRecordRows(const FixedRecordInserts& inserts, DbKind kind, const char* table,
                          const unsigned char* records, uint32_t recordSize, uint32_t firstId) {
  std::string row = "(?";
  for (size_t i = 1; i < inserts.parametersPerRow; ++i) row += ",?";
  row += ')';
  return {inserts.parametersPerRow,
          [head = inserts.head(DialectOf(kind), table).text, row](uint32_t rows) {
            std::string sql = head;
            sql.reserve(head.size() + rows * (row.size() + 1));
            for (uint32_t i = 0; i < rows; ++i) sql += (i ? "," : "") + row;
            return sql;
          },
          [&inserts, records, recordSize, firstId](uint32_t i, DbConnection::Parameter* values) {
            inserts.fill(records + size_t{i} * recordSize, firstId + i, values);
          },
          HasMultiRowValues(kind), {}, {}};
}

namespace {

// The most characters the values can show as "(v, ...)": a number at its
// longest, a text between quotes with each quote doubled.
size_t LongestShownRow(const std::vector<DbConnection::Parameter>& values) {
  size_t length = 2;
  for (const DbConnection::Parameter& value : values) {
    switch (value.type) {
      case DbConnection::Parameter::Type::Integer: length += 20 + 2; break;
      case DbConnection::Parameter::Type::Double: length += 24 + 2; break;
      case DbConnection::Parameter::Type::Text:
        length += value.text.size() + std::count(value.text.begin(), value.text.end(), '\'') + 4;
        break;
    }
  }
  return length;
}

}  // namespace

uint32_t WholeInserts(const FixedRecordInserts& inserts, DbKind kind, const char* table,
                      const unsigned char* records, uint32_t count, uint32_t recordSize,
                      uint32_t firstId) {
  const Statement head = inserts.head(DialectOf(kind), table);
  std::vector<DbConnection::Parameter> values(inserts.parametersPerRow);
  for (uint32_t i = 0; i < count; ++i) {
    const unsigned char* record = records + size_t{i} * recordSize;
    inserts.fill(record, firstId + i, values.data());
    // Only a row that might not fit is built.
    if (head.complete && head.text.size() + LongestShownRow(values) < inserts.bufferSize) continue;
    if (!inserts.single(kind, table, firstId + i, record).complete) return i;
  }
  return count;
}

}  // namespace scadastore
