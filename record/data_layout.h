// The record codec of data tables: where each value lives in a DataRecord,
// how a value is written into SQL text and how a result row is read back.
// The packing rule (values back to back, no alignment) is written here only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/connection.h"
#include "core/settings.h"
#include "core/sql_text.h"
#include "scadastore.h"

namespace scadastore::record {

constexpr uint32_t kRecordHeadSize = 16;

struct ColumnLayout {
  std::string_view name;
  uint32_t type;
  uint32_t offset;  // from the start of the record
  uint32_t width;
};

// The table's name: a DataTableInfo starts with it, so a bare name works too.
std::string_view TableName(const void* table);

// The value columns in table order with their record offsets.
std::vector<ColumnLayout> Layout(const DataTableInfo& table);

// 16 plus the widths of all values: the least recordSize that holds them.
uint32_t PackedRecordSize(const std::vector<ColumnLayout>& layout);

// A data table as the record functions use it, read once per call. The
// column names point into the DataTableInfo, which must outlive it.
struct TableLayout {
  std::string name;
  std::vector<ColumnLayout> columns;
  uint32_t recordSize;

  // False when recordSize is too small for the values: such records would be
  // read or written past their end.
  bool HoldsValues() const { return PackedRecordSize(columns) <= recordSize; }
};

TableLayout DescribeTable(const DataTableInfo& table);

struct RecordHead {
  uint32_t id;
  uint32_t time;
  uint32_t ms;
  uint32_t modify;
};

RecordHead LoadHead(const void* record);

// Appends one value of `record`: "%.17g" for a double, 1 or 0 for an
// integer, a bound text, nothing for other codes.
void AppendValue(Statement& out, const ColumnLayout& column, const void* record);
// The same value as a bound parameter, for a column that carries one (width 0 carries none).
void BindableValue(DbConnection::Parameter& out, const ColumnLayout& column, const void* record);

// False when a value of `record` cannot be stored as written: a float that
// is not finite (no statement can carry it), or a text without its NUL.
bool Writable(const std::vector<ColumnLayout>& columns, const void* record);

// The part of a record a failed read was filling, in the order of the
// readers' "failed to get field" serials.
enum class RecordPart { Id, Time, Ms, Modify, Float, Integer, Text };

struct ReadFailure {
  RecordPart part;
  int column;  // result column, from 1
};

// Reads the current row of `db` into `record`: result columns 1 to 4 into the
// head, then column 5 + i for value column i. Other codes read nothing, but
// keep their result column so that later values come from their own columns.
// A NULL leaves the record's bytes as they were, except that a NULL integer
// value reads as 0. Stops at the first failed read.
std::optional<ReadFailure> ReadRecord(DbConnection& db, const std::vector<ColumnLayout>& columns,
                                      void* record);

}  // namespace scadastore::record
