// A data table as the library sees it: the DataTableInfo built from
// --columns, and the packed values of its DataRecords.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "scadastore.h"
#include "tools/cli/output/output.h"

namespace scadastore::cli {

struct Column {
  std::string name;
  uint32_t type;  // SCADASTORE_VALUE_FLOAT, _INTEGER or _TEXT
};

// "a:float,b:int,c:text"; a name without a type is a float column.
std::vector<Column> ParseColumns(const std::string& spec);

class DataTable {
 public:
  DataTable(const std::string& name, std::vector<Column> columns,
            uint32_t statMode = SCADASTORE_STAT_AVERAGE);

  const DataTableInfo* info() const {
    return reinterpret_cast<const DataTableInfo*>(info_.data());
  }
  const std::string& name() const { return name_; }
  const std::vector<Column>& columns() const { return columns_; }
  uint32_t recordSize() const { return recordSize_; }
  // Where column c's value starts within a record.
  uint32_t Offset(size_t c) const { return offsets_[c]; }

  // A record of this table with every value zero (texts empty).
  std::vector<uint8_t> EmptyRecord() const { return std::vector<uint8_t>(recordSize_, 0); }

  // Value of column c of the record at `record`; a float NaN is null.
  Cell Value(const uint8_t* record, size_t c) const;
  // Stores a float, an integer (0 or 1, all that the library keeps) or a
  // text; throws a CommandError when the text is not such a value.
  void SetValue(uint8_t* record, size_t c, const std::string& text) const;
  void SetFloat(uint8_t* record, size_t c, double value) const;

  // id, time, ms, modify, then the values.
  std::vector<Cell> RecordCells(const uint8_t* record, const OutputOptions& options) const;

 private:
  std::string name_;
  std::vector<Column> columns_;
  std::vector<uint32_t> offsets_;  // of each value within a record
  uint32_t recordSize_ = sizeof(DataRecord);
  std::vector<uint8_t> info_;
};

class Session;
struct Slot;
// The statistic of every float column over the slot, as a record of the
// table; a column without rows in the slot is NaN, which Value gives as null.
std::vector<uint8_t> SlotStatistic(Session& session, const DataTable& table, uint32_t statistic,
                                   const Slot& slot);

// The data table of this name as the database describes it; a
// CommandError when there is none or it is not a data table.
DataTable ReadDataTable(Session& session, const std::string& name,
                        uint32_t statMode = SCADASTORE_STAT_AVERAGE);

// Reads one field of a packed record without alignment.
template <typename T>
T LoadAt(const uint8_t* bytes, size_t offset) {
  T value;
  std::memcpy(&value, bytes + offset, sizeof value);
  return value;
}
template <typename T>
void StoreAt(uint8_t* bytes, size_t offset, T value) {
  std::memcpy(bytes + offset, &value, sizeof value);
}

}  // namespace scadastore::cli
