// Many rows written by one prepared multi-row insert, run again for each
// slice of rows with the values bound, all inside one transaction: as whole
// or as absent as one statement, at the cost of a bound execution per slice
// instead of compiling every row's text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

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
struct BoundRows {
  size_t parametersPerRow;
  std::function<std::string(uint32_t rows)> sqlOf;
  std::function<void(uint32_t row, DbConnection::Parameter* values)> fill;
};

// Inserts rows 0 to count - 1 in one transaction, RowsPerStatement() rows a
// statement. False when nothing was stored: `failedFrom` is the first row of
// the statement that failed (0 when the transaction itself failed) and the
// driver's text is in db.ErrorText().
bool InsertAllOrNone(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom);

// Runs statementOf(0) to statementOf(count - 1) in one transaction. False
// when nothing was stored: statement `failedAt` failed (the last one when the
// commit did), with the driver's text in db.ErrorText().
bool ExecuteAllOrNone(DbConnection& db, uint32_t count,
                      const std::function<Statement(uint32_t)>& statementOf, uint32_t& failedAt);

}  // namespace scadastore
