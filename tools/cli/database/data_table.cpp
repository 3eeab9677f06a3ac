#include "tools/cli/database/data_table.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "tools/cli/database/schema.h"
#include "tools/cli/database/session.h"
#include "tools/cli/times.h"

namespace scadastore::cli {

std::vector<Column> ParseColumns(const std::string& spec) {
  std::vector<Column> columns;
  size_t start = 0;
  while (start <= spec.size()) {
    size_t end = std::min(spec.find(',', start), spec.size());
    std::string item = spec.substr(start, end - start);
    start = end + 1;
    size_t colon = item.find(':');
    std::string name = item.substr(0, colon);
    std::string type = colon == std::string::npos ? "float" : item.substr(colon + 1);
    if (name.empty() || name.size() > 31)
      throw CommandError(fmt::format("--columns: '{}' needs a name of 1 to 31 characters", item));
    if (type == "float" || type == "double")
      columns.push_back({name, SCADASTORE_VALUE_FLOAT});
    else if (type == "int" || type == "integer")
      columns.push_back({name, SCADASTORE_VALUE_INTEGER});
    else if (type == "text")
      columns.push_back({name, SCADASTORE_VALUE_TEXT});
    else
      throw CommandError(fmt::format("--columns: '{}': the type must be float, int or text", item));
  }
  return columns;
}

DataTable::DataTable(const std::string& name, std::vector<Column> columns, uint32_t statMode)
    : name_(name), columns_(std::move(columns)) {
  if (name.empty() || name.size() >= sizeof(DataTableInfo::name))
    throw CommandError(fmt::format("table name '{}' must have 1 to 435 characters", name));
  for (const Column& column : columns_) {
    offsets_.push_back(recordSize_);
    recordSize_ += SCADASTORE_VALUE_WIDTH(column.type);
  }
  info_.assign(sizeof(DataTableInfo) + columns_.size() * sizeof(ColumnInfo), 0);
  auto* info = reinterpret_cast<DataTableInfo*>(info_.data());
  std::memcpy(info->name, name.data(), name.size());
  info->statMode = statMode;
  info->recordSize = recordSize_;
  info->columnCount = static_cast<uint32_t>(columns_.size());
  for (size_t c = 0; c < columns_.size(); ++c) {
    ColumnInfo column{};
    column.type = columns_[c].type;
    std::memcpy(column.name, columns_[c].name.data(), columns_[c].name.size());
    std::memcpy(info_.data() + sizeof(DataTableInfo) + c * sizeof(ColumnInfo), &column,
                sizeof column);
  }
}

Cell DataTable::Value(const uint8_t* record, size_t c) const {
  const uint8_t* value = record + offsets_[c];
  switch (columns_[c].type) {
    case SCADASTORE_VALUE_FLOAT: {
      double number = LoadAt<double>(value, 0);
      return std::isfinite(number) ? Cell(number) : Cell();
    }
    case SCADASTORE_VALUE_INTEGER:
      return LoadAt<int32_t>(value, 0);
    default:
      return std::string(reinterpret_cast<const char*>(value), strnlen(reinterpret_cast<const char*>(value), 255));
  }
}

void DataTable::SetFloat(uint8_t* record, size_t c, double value) const {
  StoreAt(record, offsets_[c], value);
}

void DataTable::SetValue(uint8_t* record, size_t c, const std::string& text) const {
  const Column& column = columns_[c];
  auto refuse = [&](const char* expected) {
    throw CommandError(fmt::format("column {}: '{}' is not {}", column.name, text, expected));
  };
  char* end = nullptr;
  errno = 0;
  switch (column.type) {
    case SCADASTORE_VALUE_FLOAT: {
      double value = std::strtod(text.c_str(), &end);
      if (text.empty() || *end != '\0' || !std::isfinite(value)) refuse("a number");
      SetFloat(record, c, value);
      break;
    }
    case SCADASTORE_VALUE_INTEGER: {
      long value = std::strtol(text.c_str(), &end, 10);
      if (text.empty() || *end != '\0' || (value != 0 && value != 1))
        refuse("0 or 1 (an int column keeps only these)");
      StoreAt(record, offsets_[c], static_cast<int32_t>(value));
      break;
    }
    default: {
      // The column is varchar(64); the library writes the text between
      // quotes with any quote doubled, in at most 255 characters.
      size_t characters = std::count_if(text.begin(), text.end(), [](char ch) {
        return (static_cast<unsigned char>(ch) & 0xC0) != 0x80;
      });
      if (characters > 64 || text.size() + std::count(text.begin(), text.end(), '\'') > 253)
        refuse("a text of at most 64 characters");
      std::memcpy(record + offsets_[c], text.data(), text.size());
      record[offsets_[c] + text.size()] = 0;
    }
  }
}

std::vector<Cell> DataTable::RecordCells(const uint8_t* record,
                                         const OutputOptions& options) const {
  std::vector<Cell> cells = {LoadAt<uint32_t>(record, offsetof(DataRecord, id)),
                             TimeCell(LoadAt<uint32_t>(record, offsetof(DataRecord, time)), options),
                             LoadAt<uint32_t>(record, offsetof(DataRecord, ms)),
                             LoadAt<uint32_t>(record, offsetof(DataRecord, modify))};
  for (size_t c = 0; c < columns_.size(); ++c) cells.push_back(Value(record, c));
  return cells;
}

}  // namespace scadastore::cli

namespace scadastore::cli {

std::vector<uint8_t> SlotStatistic(Session& session, const DataTable& table, uint32_t statistic,
                                   const Slot& slot) {
  if (slot.end > INT32_MAX) throw UsageError("the statistics stop at 2038");
  std::vector<uint8_t> record = table.EmptyRecord();
  // The library leaves a value as it was when the slot has no rows.
  for (size_t c = 0; c < table.columns().size(); ++c)
    if (table.columns()[c].type == SCADASTORE_VALUE_FLOAT) table.SetFloat(record.data(), c, NAN);
  session.Check(sgGetRecordStatValueOfInterval(
                    session.Token(), table.info(), statistic, static_cast<int32_t>(slot.start),
                    static_cast<int32_t>(slot.end), reinterpret_cast<DataRecord*>(record.data()),
                    table.recordSize()),
                "statistics");
  return record;
}

DataTable ReadDataTable(Session& session, const std::string& name, uint32_t statMode) {
  TableSchema schema = ReadSchema(session, name);
  if (schema.Kind() != "data")
    throw CommandError(fmt::format("{} is not a data table (its columns: {})", name,
                                   schema.ColumnList()));
  std::vector<Column> columns;
  for (const SchemaColumn& column : schema.ValueColumns())
    columns.push_back({column.name, column.valueType});
  return DataTable(name, columns, statMode);
}

}  // namespace scadastore::cli
