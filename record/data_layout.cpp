#include "record/data_layout.h"

#include <cstring>

#include "core/sql_text.h"

namespace scadastore::record {

uint32_t ValueWidth(uint32_t type) {
  switch (type) {
    case SCADASTORE_VALUE_FLOAT: return 8;
    case SCADASTORE_VALUE_INTEGER: return 4;
    case SCADASTORE_VALUE_TEXT: return 256;
    default: return 0;
  }
}

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
    uint32_t width = ValueWidth(column.type);
    layout.push_back({FieldText(column.name, sizeof column.name), column.type, offset, width});
    offset += width;
  }
  return layout;
}

uint32_t PackedRecordSize(const std::vector<ColumnLayout>& layout) {
  return layout.empty() ? kRecordHeadSize : layout.back().offset + layout.back().width;
}

}  // namespace scadastore::record
