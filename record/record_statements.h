// Statements of the data-record functions, built from the record codec.
// Pure functions: dialect (or kind) and inputs in, statement text out.
#pragma once

#include <cstdint>
#include <string>

#include "core/settings.h"
#include "record/data_layout.h"

namespace scadastore::record {

// Single-record statements are built as into an 8192-byte buffer and are not
// built once they reach 7680 characters before a column; a batch piece
// (header, row, clause) must stay within the 8192-byte buffer.
constexpr size_t kStatementBufferSize = 8192;
constexpr size_t kStatementLimit = 7680;
// Room reserved for a batch statement before its rows are known.
constexpr size_t kBatchReserve = 16000;
// Buffers of the readers' and deleters' statements.
constexpr uint32_t kWholeTableStatementSize = 1024;
constexpr uint32_t kShortStatementSize = 256;

// A statement and whether it was built completely.
struct Statement {
  std::string text;
  bool complete = true;
};

// Batches run under kinds 2, 3, 4 and 5 only.
inline bool AllowsBatches(DbKind kind) { return kind >= 2 && kind <= 5; }

// The create statement. When it reaches 7680 characters before a column the
// text built so far is returned, unfinished: the database then rejects it.
std::string CreateTableStatement(DbKind kind, const TableLayout& table);
std::string CreateIndexStatement(SqlDialect dialect, const std::string& table);
std::string LargestIdStatement(SqlDialect dialect, const std::string& table);

// Insert of one record under `id` with modify 0. Incomplete, and empty, when
// `size` is not the table's recordSize or recordSize cannot hold the values.
Statement InsertStatement(SqlDialect dialect, const TableLayout& table, const void* record,
                          uint32_t size, uint32_t id);

// size / recordSize records of `buffer` numbered from `firstId`: the
// INSERT ALL form under kind 4, the multi-row form otherwise. Empty when
// recordSize is 0, above `size` or too small for the values, or a piece
// outgrows its buffer.
std::string BatchStatement(DbKind kind, const TableLayout& table, const void* buffer,
                           uint32_t size, uint32_t firstId);

// Rewrites every value of the record with `id` and sets modify to 1.
// Incomplete when recordSize cannot hold the values (then empty) or the text
// reached 7680 characters.
Statement UpdateStatement(SqlDialect dialect, const TableLayout& table, const void* record,
                          uint32_t id);

std::string DeleteAllStatement(SqlDialect dialect, const std::string& table);
std::string DeleteByIdStatement(SqlDialect dialect, const std::string& table, uint32_t id);

// Every row in id order, formatted into a buffer of `bufferSize` bytes.
std::string WholeTableStatement(SqlDialect dialect, const std::string& table, uint32_t bufferSize);
// Rows with startTime <= time <= endTime, in id order.
std::string IntervalStatement(SqlDialect dialect, const std::string& table, uint32_t startTime,
                              uint32_t endTime);
std::string IdsStatement(SqlDialect dialect, const std::string& table);
std::string CountStatement(SqlDialect dialect, const std::string& table);

}  // namespace scadastore::record
