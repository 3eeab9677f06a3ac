// Walking the rows of an open result set into consecutive records.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/connection.h"
#include "platform/result_heap.h"

namespace scadastore {

// Reads column 1 of the first row of a one-row result (count, max id) into
// `value`, which a NULL leaves as it was; the first row is taken with NEXT
// under kind 4. False when the column cannot be read.
inline bool ReadSingleInteger(DbConnection& db, uint32_t& value) {
  db.MoveToFirstRow();
  return db.GetInteger(1, &value, sizeof value) != 0;
}

// From the first row, calls readRow(i) for i = 0.. while rows remain and
// i < limit, moving to the next row between calls. Returns the rows read.
// readRow returns false to stop early (a failed read).
template <class ReadRow>
uint32_t ReadRows(DbConnection& db, uint32_t limit, ReadRow&& readRow) {
  uint32_t count = 0;
  if (limit == 0) return 0;
  db.MoveFirst();
  while (count < limit && !db.IsEOF()) {
    if (!readRow(count)) break;
    if (++count < limit) db.MoveNext();
  }
  return count;
}

// A result read into a malloc block, rows * recordSize bytes (at most
// 4 GiB - 1, the largest size a caller can be told).
struct RowBlock {
  enum class Status { Read, Empty, NoMemory, ReadFailed };
  Status status = Status::Empty;
  ResultBlock block;
  uint32_t rows = 0;
  uint64_t capacity = 0;  // rows the block has room for
};

// Appends every row of the open forward-only result with readRow(record, i),
// each record zeroed first, to a block that doubles as rows arrive: the rows
// are read once, as the driver streams them, and the block is the only copy
// held. False when a row could not be read or stored (the status says which).
template <class ReadRow>
bool AppendRows(DbConnection& db, RowBlock& result, size_t recordSize, ReadRow&& readRow) {
  constexpr uint64_t kFirstRows = 1024;
  db.ReadInRowsets();
  while (db.MoveNext()) {
    if (result.rows == result.capacity) {
      // The block's size goes out as 32 bits: a larger block cannot be handed out.
      const uint64_t mostRows = UINT32_MAX / std::max<uint64_t>(recordSize, 1);
      const uint64_t capacity = std::min(std::max(result.capacity * 2, kFirstRows), mostRows);
      const bool grown =
          result.rows < mostRows &&
          (result.block ? ResizeResultBlock(result.block, static_cast<size_t>(capacity * recordSize))
                        : !!(result.block = AllocateResultBlock(static_cast<size_t>(capacity * recordSize))));
      if (!grown) {
        result.status = RowBlock::Status::NoMemory;
        return false;
      }
      result.capacity = capacity;
    }
    unsigned char* record = result.block.get() + size_t{result.rows} * recordSize;
    std::memset(record, 0, recordSize);
    if (!readRow(record, result.rows)) {
      result.status = RowBlock::Status::ReadFailed;
      return false;
    }
    ++result.rows;
  }
  return true;
}

// Ends a read whose rows all arrived: an empty result holds no block, and a
// block is cut to its rows (or handed out as it is, its tail unused, when it
// cannot shrink).
inline void FinishRowBlock(RowBlock& result, size_t recordSize) {
  if (result.rows == 0) {
    result.block.reset();
    return;
  }
  if (result.rows < result.capacity) ResizeResultBlock(result.block, size_t{result.rows} * recordSize);
  result.status = RowBlock::Status::Read;
}

// Every row of the open forward-only result as AppendRows reads them, the
// block finished; an empty result allocates nothing.
template <class ReadRow>
RowBlock ReadRowBlock(DbConnection& db, size_t recordSize, ReadRow&& readRow) {
  RowBlock result;
  if (AppendRows(db, result, recordSize, readRow)) FinishRowBlock(result, recordSize);
  return result;
}

}  // namespace scadastore
