// The text-table result of a free select: cell texts one after another in one
// block, located through a table of 32-bit offsets, row 0 being the header.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/result_heap.h"

namespace scadastore::record {

// How a result column is shown.
enum class CellKind { Skipped, DateTime, Text };

// Cuts "a;b;c" into at most 16 names of 1 to 63 characters; empty and longer
// pieces are dropped.
std::vector<std::string> CutTimeColumnList(const char* list);

// id, ms and modify are skipped and time is a date-time column, by exact name.
// Each listed name makes a date-time column of the first result column of
// that name not yet given to an earlier, equal listed name.
std::vector<CellKind> ClassifyColumns(const std::vector<std::string>& columnNames,
                                      const std::vector<std::string>& timeColumns);

// Seconds since 1970 within 2009-12-31 16:00:01 .. 2034-12-31 15:59:59 UTC as
// local "YYYY-MM-DD hh:mm:ss" into `cell`; false (cell untouched) outside.
bool FormatDateTimeCell(uint32_t seconds, char* cell, uint32_t capacity);

class TextTableBuilder {
 public:
  enum class AppendResult { Appended, TooLarge, NoMemory };

  // The offsets are 32-bit, so the text can never pass this size.
  static constexpr uint64_t kTextLimit = UINT32_MAX;
  explicit TextTableBuilder(uint64_t textLimit = kTextLimit) : text_limit_(textLimit) {}

  // Zeroed room for (rows + 1) x columns offsets.
  bool AllocateOffsets(uint32_t rows, uint32_t columns);
  // Room for the offsets of `rows` rows after the header, doubled when short;
  // the room gained is zeroed.
  bool GrowOffsets(uint32_t rows);
  // Cuts the offsets to (rows + 1) x columns and the text to its length.
  void Fit(uint32_t rows);
  // A zeroed text block of 512 bytes a row, the header included.
  bool AllocateText(uint32_t rows);
  // Adds one NUL-terminated text and its offset; doubles the block when full.
  AppendResult Append(std::string_view text);

  uint32_t text_length() const { return static_cast<uint32_t>(used_); }
  uint64_t text_capacity() const { return capacity_; }
  const char* text() const { return reinterpret_cast<const char*>(text_.get()); }
  const uint32_t* offsets() const { return reinterpret_cast<const uint32_t*>(offsets_.get()); }
  // Hands the blocks to the caller.
  uint32_t* ReleaseOffsets() { return reinterpret_cast<uint32_t*>(offsets_.release()); }
  char* ReleaseText() { return reinterpret_cast<char*>(text_.release()); }

 private:
  uint64_t text_limit_;
  ResultBlock offsets_;
  uint64_t offset_rows_ = 0;  // rows after the header the offsets have room for
  uint32_t columns_ = 0;
  ResultBlock text_;
  uint64_t capacity_ = 0;
  uint64_t used_ = 0;
  uint64_t next_entry_ = 0;
};

}  // namespace scadastore::record
