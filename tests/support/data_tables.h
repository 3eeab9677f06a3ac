// Building DataTableInfo descriptions and packed records in tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "record/data_layout.h"
#include "scadastore.h"

namespace scadastore::testing {

using Columns = std::vector<std::pair<std::string, uint32_t>>;  // name and value type

// A DataTableInfo with its ColumnInfo entries in one buffer. recordSize is
// 16 plus the packed widths unless set afterwards.
class DataTable {
 public:
  DataTable(const std::string& name, const Columns& columns)
      : bytes_(sizeof(DataTableInfo) + columns.size() * sizeof(ColumnInfo)) {
    DataTableInfo* table = info();
    std::strncpy(table->name, name.c_str(), sizeof table->name - 1);
    table->columnCount = static_cast<uint32_t>(columns.size());
    uint32_t size = 16;
    for (size_t i = 0; i < columns.size(); ++i) {
      ColumnInfo& column = table->columns[i];
      column.type = columns[i].second;
      std::strncpy(column.name, columns[i].first.c_str(), sizeof column.name - 1);
      size += SCADASTORE_VALUE_WIDTH(columns[i].second);
    }
    table->recordSize = size;
  }

  DataTableInfo* info() { return reinterpret_cast<DataTableInfo*>(bytes_.data()); }
  const DataTableInfo* info() const { return reinterpret_cast<const DataTableInfo*>(bytes_.data()); }
  uint32_t recordSize() const { return info()->recordSize; }

 private:
  std::vector<unsigned char> bytes_;
};

// Packed records back to back; values are written byte-wise at any offset.
class RecordBuffer {
 public:
  RecordBuffer(uint32_t recordSize, size_t count) : size_(recordSize), bytes_(recordSize * count) {}

  template <class T>
  void Put(size_t record, size_t offset, T value) {
    std::memcpy(bytes_.data() + record * size_ + offset, &value, sizeof value);
  }
  void PutText(size_t record, size_t offset, const std::string& text) {
    std::memcpy(bytes_.data() + record * size_ + offset, text.c_str(), text.size() + 1);
  }
  template <class T>
  T Get(size_t record, size_t offset) const {
    T value;
    std::memcpy(&value, bytes_.data() + record * size_ + offset, sizeof value);
    return value;
  }

  unsigned char* data() { return bytes_.data(); }
  const unsigned char* data() const { return bytes_.data(); }
  DataRecord* record(size_t k) { return reinterpret_cast<DataRecord*>(bytes_.data() + k * size_); }
  uint32_t bytes() const { return static_cast<uint32_t>(bytes_.size()); }

 private:
  uint32_t size_;
  std::vector<unsigned char> bytes_;
};

}  // namespace scadastore::testing
