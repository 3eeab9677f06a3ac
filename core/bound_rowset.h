// Rows of a forward-only result fetched many at a time into bound column
// buffers: one driver call per rowset instead of one per value. The columns
// and how they are read are learnt from the reads of the first row, so a
// reader reads every row the same way, whichever path serves it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/odbc_api.h"

namespace scadastore {

class BoundRowset {
 public:
  BoundRowset() = default;
  BoundRowset(const BoundRowset&) = delete;
  BoundRowset& operator=(const BoundRowset&) = delete;

  // Starts learning the reads of the result's first row.
  void Learn() {
    Reset();
    learning_ = true;
  }
  bool learning() const { return learning_; }
  bool bound() const { return bound_; }
  // A read of the first row: `column` as `cType` into `length` bytes. A
  // column read twice, or in two ways, cannot be bound.
  void Record(uint16_t column, SQLSMALLINT cType, SQLLEN length);
  // Binds the learnt columns to `statement`; false, leaving it unbound,
  // when there is nothing to bind or the driver refuses.
  bool Bind(SQLHSTMT statement);
  // The next row: the next of the rowset, or the first of the next rowset
  // fetched. SQL_NO_DATA at the end; a failed fetch is the driver's result,
  // and so is a row the driver marked failed (its diagnostic stays on the
  // statement until the next fetch).
  SQLRETURN Next(SQLHSTMT statement);
  // The current row's value of `column` read as `cType` into `length` bytes
  // with its indicator; null when the column is not bound that way.
  char* Value(uint16_t column, SQLSMALLINT cType, SQLLEN length, SQLLEN& indicator);
  // Back to unbound reads; unbinds `statement` when it was bound.
  void Reset(SQLHSTMT statement = SQL_NULL_HSTMT);

 private:
  struct Column {
    uint16_t number;
    SQLSMALLINT cType;
    SQLLEN length;
    std::unique_ptr<char[]> values;      // rows_ values of `length` bytes
    std::unique_ptr<SQLLEN[]> indicators;  // one a row
  };
  std::vector<Column> columns_;
  std::vector<int16_t> slot_of_column_;  // index into columns_ by column number, -1 none
  std::unique_ptr<SQLUSMALLINT[]> row_status_;
  SQLULEN rows_ = 0;     // rows a fetch asks for
  SQLULEN fetched_ = 0;  // rows the last fetch gave
  SQLULEN current_ = 0;
  bool learning_ = false;
  bool unbindable_ = false;
  bool bound_ = false;
  bool ended_ = false;  // a fetch failed: no rows after its first
};

}  // namespace scadastore
