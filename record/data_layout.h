// Where each value of a data table lives in a DataRecord. The packing rule
// (values back to back, no alignment) is written here only.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "scadastore.h"

namespace scadastore::record {

constexpr uint32_t kRecordHeadSize = 16;

// Bytes a value of this type takes in a record: 8, 4, 256, or 0 for other codes.
uint32_t ValueWidth(uint32_t type);

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

}  // namespace scadastore::record
