// Walking the rows of an open result set into consecutive records.
#pragma once

#include <cstddef>
#include <cstdint>

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

// A counted result read into a zeroed malloc block, rows * recordSize bytes
// (at most 4 GiB - 1, the largest size a caller can be told).
struct RowBlock {
  enum class Status { Read, Empty, NoMemory, ReadFailed };
  Status status = Status::Empty;
  ResultBlock block;
  uint32_t rows = 0;
};

// Counts the rows of the open result (CountRows), allocates the block and
// reads every row with readRow(record, i). An empty result allocates nothing.
template <class ReadRow>
RowBlock ReadRowBlock(DbConnection& db, size_t recordSize, ReadRow&& readRow) {
  RowBlock result;
  uint32_t rows = db.CountRows();
  if (rows == 0) return result;
  // The block's size goes out as 32 bits: a larger block cannot be handed out.
  if (recordSize > UINT32_MAX / rows) {
    result.status = RowBlock::Status::NoMemory;
    return result;
  }
  result.block = AllocateResultBlock(recordSize * rows);
  if (!result.block) {
    result.status = RowBlock::Status::NoMemory;
    return result;
  }
  unsigned char* base = result.block.get();
  uint32_t read = ReadRows(db, rows, [&](uint32_t i) { return readRow(base + i * recordSize, i); });
  result.status = read == rows || db.IsEOF() ? RowBlock::Status::Read : RowBlock::Status::ReadFailed;
  result.rows = rows;
  return result;
}

}  // namespace scadastore
