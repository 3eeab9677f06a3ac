#include "core/bound_rowset.h"

#include <algorithm>
#include <new>

namespace scadastore {
namespace {

// A rowset holds up to this many rows, fewer where rows are wide, so that its
// buffers stay near kRowsetBytes.
constexpr SQLULEN kMostRowsetRows = 512;
constexpr SQLULEN kFewestRowsetRows = 16;
constexpr size_t kRowsetBytes = size_t{1} << 20;

}  // namespace

void BoundRowset::Record(uint16_t column, SQLSMALLINT cType, SQLLEN length) {
  if (column >= slot_of_column_.size()) slot_of_column_.resize(size_t{column} + 1, -1);
  if (slot_of_column_[column] >= 0 || length <= 0) {
    unbindable_ = true;
    return;
  }
  slot_of_column_[column] = static_cast<int16_t>(columns_.size());
  columns_.push_back({column, cType, length, nullptr, nullptr});
}

bool BoundRowset::Bind(SQLHSTMT statement) {
  if (columns_.empty()) return false;  // the first row is not read yet
  learning_ = false;
  if (unbindable_) return false;
  size_t rowBytes = 0;
  for (const Column& column : columns_) rowBytes += static_cast<size_t>(column.length) + sizeof(SQLLEN);
  rows_ = std::clamp<SQLULEN>(kRowsetBytes / rowBytes, kFewestRowsetRows, kMostRowsetRows);
  row_status_.reset(new (std::nothrow) SQLUSMALLINT[rows_]);
  bool bound = row_status_ != nullptr;
  for (Column& column : columns_) {
    if (!bound) break;
    column.values.reset(new (std::nothrow) char[rows_ * static_cast<size_t>(column.length)]);
    column.indicators.reset(new (std::nothrow) SQLLEN[rows_]);
    bound = column.values && column.indicators &&
            SQL_SUCCEEDED(Odbc().BindCol(statement, column.number, column.cType,
                                         column.values.get(), column.length,
                                         column.indicators.get()));
  }
  auto set = [&](SQLINTEGER attribute, SQLPOINTER value) {
    return SQL_SUCCEEDED(Odbc().SetStmtAttr(statement, attribute, value, 0));
  };
  bound = bound && set(SQL_ATTR_ROW_BIND_TYPE, reinterpret_cast<SQLPOINTER>(SQL_BIND_BY_COLUMN)) &&
          set(SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(rows_)) &&
          set(SQL_ATTR_ROW_STATUS_PTR, row_status_.get()) &&
          set(SQL_ATTR_ROWS_FETCHED_PTR, &fetched_);
  if (!bound) {
    // The rows go on one at a time, as the first was read.
    Reset(statement);
    return false;
  }
  bound_ = true;
  fetched_ = current_ = 0;
  return true;
}

SQLRETURN BoundRowset::Next(SQLHSTMT statement) {
  if (current_ + 1 < fetched_) {
    ++current_;
  } else {
    if (ended_) return SQL_NO_DATA;
    current_ = fetched_ = 0;
    const SQLRETURN rc = Odbc().FetchScroll(statement, SQL_FETCH_NEXT, 0);
    if (rc == SQL_NO_DATA) return rc;
    if (!SQL_SUCCEEDED(rc) || fetched_ == 0) {
      // What the rowset holds is unknown: the failure is its one row.
      ended_ = true;
      return SQL_SUCCEEDED(rc) ? SQL_NO_DATA : rc;
    }
  }
  return row_status_[current_] == SQL_ROW_ERROR ? SQL_ERROR : SQL_SUCCESS;
}

char* BoundRowset::Value(uint16_t column, SQLSMALLINT cType, SQLLEN length, SQLLEN& indicator) {
  if (column >= slot_of_column_.size() || slot_of_column_[column] < 0) return nullptr;
  Column& bound = columns_[static_cast<size_t>(slot_of_column_[column])];
  if (bound.cType != cType || bound.length != length) return nullptr;
  indicator = bound.indicators[current_];
  return bound.values.get() + current_ * static_cast<size_t>(length);
}

void BoundRowset::Reset(SQLHSTMT statement) {
  if (statement != SQL_NULL_HSTMT && (bound_ || !columns_.empty())) {
    // Unbound and back to one row a fetch before the buffers go.
    Odbc().FreeStmt(statement, SQL_UNBIND);
    Odbc().SetStmtAttr(statement, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(1), 0);
    Odbc().SetStmtAttr(statement, SQL_ATTR_ROW_STATUS_PTR, nullptr, 0);
    Odbc().SetStmtAttr(statement, SQL_ATTR_ROWS_FETCHED_PTR, nullptr, 0);
  }
  columns_.clear();
  slot_of_column_.clear();
  row_status_.reset();
  rows_ = fetched_ = current_ = 0;
  learning_ = unbindable_ = bound_ = ended_ = false;
}

}  // namespace scadastore
