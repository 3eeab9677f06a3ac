#include "record/data_layout.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "core/bytes.h"
#include "core/connection.h"
#include "core/sql_text.h"

namespace scadastore::record {
namespace {

constexpr int kFirstValueColumn = 5;
constexpr int kDoubleDigits = 17;

}  // namespace

std::string_view TableName(const void* table) {
  const char* name = static_cast<const char*>(table);
  return std::string_view(name, strnlen(name, sizeof(DataTableInfo::name)));
}

std::vector<ColumnLayout> Layout(const DataTableInfo& table) {
  std::vector<ColumnLayout> layout;
  layout.reserve(table.columnCount);
  uint32_t offset = kRecordHeadSize;
  for (uint32_t i = 0; i < table.columnCount; ++i) {
    const ColumnInfo& column = table.columns[i];
    uint32_t width = SCADASTORE_VALUE_WIDTH(column.type);
    layout.push_back({FieldText(column.name, sizeof column.name), column.type, offset, width});
    offset += width;
  }
  return layout;
}

uint32_t PackedRecordSize(const std::vector<ColumnLayout>& layout) {
  return layout.empty() ? kRecordHeadSize : layout.back().offset + layout.back().width;
}

TableLayout DescribeTable(const DataTableInfo& table) {
  return {std::string(TableName(&table)), Layout(table), table.recordSize};
}

RecordHead LoadHead(const void* record) {
  return {LoadField<uint32_t>(record, 0), LoadField<uint32_t>(record, 4),
          LoadField<uint32_t>(record, 8), LoadField<uint32_t>(record, 12)};
}

void AppendValue(Statement& out, const ColumnLayout& column, const void* record) {
  switch (column.type) {
    case SCADASTORE_VALUE_FLOAT: {
      // Same text as "%.17g" in the C locale, without the cost of printf.
      char digits[32];
      auto end = std::to_chars(digits, digits + sizeof digits,
                               LoadField<double>(record, column.offset),
                               std::chars_format::general, kDoubleDigits);
      out += {std::string(digits, end.ptr)};
      break;
    }
    case SCADASTORE_VALUE_INTEGER:
      out += {LoadField<int32_t>(record, column.offset) != 0 ? "1" : "0"};
      break;
    case SCADASTORE_VALUE_TEXT:
      out.AppendText(FieldText(static_cast<const unsigned char*>(record) + column.offset, column.width));
      break;
    default:
      break;
  }
}

void BindableValue(DbConnection::Parameter& out, const ColumnLayout& column, const void* record) {
  using Type = DbConnection::Parameter::Type;
  switch (column.type) {
    case SCADASTORE_VALUE_FLOAT:
      out.type = Type::Double;
      out.real = LoadField<double>(record, column.offset);
      break;
    case SCADASTORE_VALUE_INTEGER:
      out.type = Type::Integer;
      out.integer = LoadField<int32_t>(record, column.offset) != 0 ? 1 : 0;
      break;
    default:
      out.type = Type::Text;
      out.text = FieldText(static_cast<const unsigned char*>(record) + column.offset, column.width);
      break;
  }
}

bool Writable(const std::vector<ColumnLayout>& columns, const void* record) {
  for (const ColumnLayout& column : columns) {
    if (column.type == SCADASTORE_VALUE_FLOAT && !std::isfinite(LoadField<double>(record, column.offset)))
      return false;
    if (column.type == SCADASTORE_VALUE_TEXT && !Terminated(record, column.offset, column.width))
      return false;
  }
  return true;
}

std::optional<ReadFailure> ReadRecord(DbConnection& db, const std::vector<ColumnLayout>& columns,
                                      void* record) {
  static constexpr RecordPart kHead[] = {RecordPart::Id, RecordPart::Time, RecordPart::Ms,
                                         RecordPart::Modify};
  for (int i = 0; i < 4; ++i) {
    if (!db.GetInteger(static_cast<uint16_t>(i + 1), BytesAt(record, 4 * i), 4))
      return ReadFailure{kHead[i], i + 1};
  }
  int column = kFirstValueColumn;
  for (const ColumnLayout& value : columns) {
    const auto number = static_cast<uint16_t>(column);
    unsigned char* place = BytesAt(record, value.offset);
    switch (value.type) {
      case SCADASTORE_VALUE_FLOAT:
        if (!db.GetDouble(number, place, 8)) return ReadFailure{RecordPart::Float, column};
        break;
      case SCADASTORE_VALUE_INTEGER: {
        int32_t integer = 0;
        if (!db.GetInteger(number, &integer, sizeof integer))
          return ReadFailure{RecordPart::Integer, column};
        std::memcpy(place, &integer, sizeof integer);
        break;
      }
      case SCADASTORE_VALUE_TEXT:
        if (!db.GetString(number, reinterpret_cast<char*>(place), static_cast<int32_t>(value.width)))
          return ReadFailure{RecordPart::Text, column};
        break;
      default:
        break;
    }
    ++column;
  }
  return std::nullopt;
}

}  // namespace scadastore::record
