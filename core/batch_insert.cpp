#include "core/batch_insert.h"

#include <algorithm>
#include <vector>

namespace scadastore {

Transaction::~Transaction() {
  if (!open_) return;
  if (!committed_ && db_.Unreachable()) {
    // The server ends a lost session's transaction; the session is not used
    // again, and the failure keeps its own text.
    db_.DoNotPool();
    return;
  }
  if (!committed_) db_.EndTransaction(false);
  db_.SetAutocommit(true);
}

uint32_t RowsPerStatement(size_t parametersPerRow) {
  constexpr size_t kRows = 500, kParameters = 2000;
  return static_cast<uint32_t>(
      std::clamp<size_t>(kParameters / std::max<size_t>(parametersPerRow, 1), 1, kRows));
}

bool InsertSlices(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom) {
  std::vector<DbConnection::Parameter> values;
  uint32_t prepared = 0;  // rows of the prepared statement
  for (uint32_t first = 0; first < count; first += prepared) {
    failedFrom = first;
    const uint32_t slice = std::min(RowsPerStatement(rows.parametersPerRow), count - first);
    const bool fresh = slice != prepared;
    if (fresh) {
      if (!db.Prepare(rows.sqlOf(slice).c_str())) return false;
      prepared = slice;
      values.assign(size_t{slice} * rows.parametersPerRow, {});
    }
    for (uint32_t r = 0; r < slice; ++r) rows.fill(first + r, &values[r * rows.parametersPerRow]);
    // Numbers stay bound where they are; texts move with each slice.
    for (size_t i = 0; i < values.size(); ++i) {
      if ((fresh || values[i].type == DbConnection::Parameter::Type::Text) &&
          !db.Bind(static_cast<uint16_t>(i + 1), values[i]))
        return false;
    }
    if (!db.RunPrepared()) return false;
  }
  return true;
}

bool InsertAllOrNone(DbConnection& db, const BoundRows& rows, uint32_t count, uint32_t& failedFrom) {
  failedFrom = 0;
  Transaction transaction(db);
  if (!transaction.open() || !InsertSlices(db, rows, count, failedFrom)) return false;
  failedFrom = 0;
  return transaction.Commit();
}

bool ExecuteAllOrNone(DbConnection& db, uint32_t count,
                      const std::function<Statement(uint32_t)>& statementOf, uint32_t& failedAt) {
  failedAt = 0;
  Transaction transaction(db);
  if (!transaction.open()) return false;
  for (; failedAt < count; ++failedAt) {
    const Statement statement = statementOf(failedAt);
    if (!statement.complete || !db.Execute(statement.Sent().c_str(), statement.texts)) return false;
  }
  failedAt = count - 1;
  return transaction.Commit();
}

}  // namespace scadastore
