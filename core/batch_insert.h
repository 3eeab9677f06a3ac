// Many rows written by one prepared multi-row insert, run again for each
// slice of rows with the values bound, all inside one transaction: as whole
// or as absent as one statement, at the cost of a bound execution per slice
// instead of compiling every row's text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "core/connection.h"
#include "core/sql_text.h"

namespace scadastore {

// Autocommit off while it lives. What Commit() did not end is rolled back,
// and the session commits each statement again on every way out, so it goes
// back to the pool or on to the next statement as it came.
class Transaction {
 public:
  explicit Transaction(DbConnection& db) : db_(db), open_(db.SetAutocommit(false)) {}
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  bool open() const { return open_; }
  bool Commit() { return committed_ = db_.EndTransaction(true); }

 private:
  DbConnection& db_;
  bool open_;
  bool committed_ = false;
};

// Rows of one statement: at most 500 and 2,000 values, which every driver
// binds (psqlODBC 13 loses its connection from about 7,500 on) and which
// measured as fast as any larger slice.
uint32_t RowsPerStatement(size_t parametersPerRow);

// Rows as a multi-row insert with bound values: sqlOf(n) is the insert of n
// rows of `parametersPerRow` `?`s each; fill(i, values) writes row i's values.
// Without `multiRow` each statement carries one row.
// Where `addSelect` is set, the SQLite driver adds short rows of numbers
// itself: it selects no rows of the table, its columns taking the values in
// turn, then one taking 0. `addClaim` changes nothing but runs first, so that the
// transaction waits for the write lock as a writer, where a reader that
// starts to write would be refused at once.
struct BoundRows {
  size_t parametersPerRow;
  std::function<std::string(uint32_t rows)> sqlOf;
  std::function<void(uint32_t row, DbConnection::Parameter* values)> fill;
  bool multiRow = true;
  std::string addClaim, addSelect;
};

// How a family of fixed-size records (alarms, log entries) inserts them:
// `single` is the insert of one record as it is shown and run alone, cut like
// a buffer of `bufferSize` bytes; `head` its "insert into ... values";
// fill(record, id, values) writes the `parametersPerRow` values of the same
// insert, bound, in the order of its columns.
struct FixedRecordInserts {
  uint32_t bufferSize;
  size_t parametersPerRow;
  Statement (*head)(SqlDialect dialect, const char* table);
  Statement (*single)(DbKind kind, const char* table, uint32_t id, const void* record);
  void (*fill)(const void* record, uint32_t id, DbConnection::Parameter* values);
};

// `records` (recordSize bytes each) under the ids from `firstId` as bound
// rows; several to a statement where the kind has multi-row values.
BoundRows FixedRecordRows(const FixedRecordInserts& inserts, DbKind kind, const char* table,
                          const unsigned char* records, uint32_t recordSize, uint32_t firstId);

// How many of `count` records, from the first, have a single insert that is
// whole. One that would be cut is never run, alone or in a batch.
uint32_t WholeInserts(const FixedRecordInserts& inserts, DbKind kind, const char* table,
                      const unsigned char* records, uint32_t count, uint32_t recordSize,
                      uint32_t firstId);

// Setters of a bound value, its type with it.
void SetInteger(DbConnection::Parameter& value, int64_t number);
void SetDouble(DbConnection::Parameter& value, double number);
void SetText(DbConnection::Parameter& value, std::string_view text);

// Runs the slices of rows inside the caller's transaction, which decides what
// stays, each as one statement or, through `addSelect`, added by the driver.
// False at the first failure: `failedFrom` is the first row of its slice.
bool InsertSlices(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom);

// Inserts rows 0 to count - 1 in one transaction, RowsPerStatement() rows a
// statement. False when nothing was stored: `failedFrom` is the first row of
// the statement that failed (0 when the transaction itself failed) and the
// driver's text is in db.ErrorText().
bool InsertAllOrNone(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom);


}  // namespace scadastore
