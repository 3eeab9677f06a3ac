// Statements of the data-record functions, built from the record codec.
// Pure functions: kind and inputs in, statement out (the shared ones are in
// core/common_statements.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/batch_insert.h"
#include "core/settings.h"
#include "core/sql_text.h"
#include "record/data_layout.h"

namespace scadastore::record {

// Single-record statements are built as into an 8192-byte buffer and are not
// built once they reach 7680 characters before a column; a batch piece
// (header, row, clause) must stay within the 8192-byte buffer.
constexpr size_t kStatementBufferSize = 8192;
constexpr size_t kStatementLimit = 7680;
// Room reserved for a batch statement before its rows are known.
constexpr size_t kBatchReserve = 16000;
// Texts a batch binds at most: psqlODBC 13 loses its connection from about
// 7,500 parameters of one statement on, MariaDB Connector/ODBC 3.1 takes at
// most 32,767 and unixODBC 65,535.
constexpr size_t kBatchTextLimit = SCADASTORE_BATCH_TEXT_LIMIT;
// Buffer of the largest-id and create-index statements.
constexpr uint32_t kLookupStatementSize = kStatementLimit + 1;
// Buffer of sgGetRecord's select of the whole table.
constexpr uint32_t kWholeTableStatementSize = 1024;

// Batches run under kinds 2, 3, 4 and 5 only.
inline bool AllowsBatches(DbKind kind) { return kind >= 2 && kind <= 5; }

// The create statement. When it reaches 7680 characters before a column the
// text built so far is returned, incomplete: the database then rejects it.
Statement CreateTableStatement(DbKind kind, const TableLayout& table);

// Insert of one record under `id` with modify 0. Incomplete, and empty, when
// `size` is not the table's recordSize or recordSize cannot hold the values.
Statement InsertStatement(DbKind kind, const TableLayout& table, const void* record,
                          uint32_t size, uint32_t id);

// size / recordSize records of `buffer` numbered from `firstId`: the
// INSERT ALL form under kind 4, the multi-row form otherwise. Incomplete and
// empty when recordSize is 0, above `size` or too small for the values, a
// piece outgrows its buffer, or the records hold more than kBatchTextLimit texts.
Statement BatchStatement(DbKind kind, const TableLayout& table, const void* buffer,
                           uint32_t size, uint32_t firstId);

// Whether BatchStatement builds these records, without building it where no
// row can outgrow its buffer.
bool BatchBuilds(DbKind kind, const TableLayout& table, const void* buffer, uint32_t size);

// The statement BatchStatement shows, as sent with bound values: the insert
// of `rows` records, each BatchParameters() `?`s (id, time, ms, then the
// values that columns carry) and modify 0. BatchRow writes a record's values.
std::string BatchInsertSql(DbKind kind, const TableLayout& table, uint32_t rows);
size_t BatchParameters(const TableLayout& table);
void BatchRow(const TableLayout& table, const void* record, uint32_t id,
              DbConnection::Parameter* values);
// The records from `records` under ids from `firstId` as InsertSlices takes
// them; `table` must outlive the rows.
BoundRows BatchRows(DbKind kind, const TableLayout& table, const unsigned char* records,
                    uint32_t firstId);

// Rewrites every value of the record with `id` and sets modify to 1.
// Incomplete when recordSize cannot hold the values (then empty) or the text
// reached 7680 characters.
Statement UpdateStatement(DbKind kind, const TableLayout& table, const void* record, uint32_t id);

Statement DeleteAllStatement(DbKind kind, const std::string& table);
// Rows with startTime <= time <= endTime, in id order.
Statement IntervalStatement(DbKind kind, const std::string& table, uint32_t startTime,
                            uint32_t endTime);
Statement IdsStatement(DbKind kind, const std::string& table);
// `shown` (IdsStatement or SelectAllStatement) narrowed to its row at
// `position` (from 1, ascending id), which the database finds: the text
// stays `shown`, the statement sent selects that row alone (HasLimitOffset).
Statement PositionStatement(DbKind kind, bool onSqlite, const std::string& table,
                            const Statement& shown, uint32_t position);

// A paged read's first page holds this many rows and each later one a quarter
// of the rows read so far: the page a driver holds stays a fraction of the
// block, in few statements.
constexpr uint32_t kFirstPageRows = 10000;

// A select of 1 when `table` can be read in pages (ReadsInPages), 0 otherwise:
// an InnoDB table, so that every page sees one snapshot, whose primary key is
// `id` alone, so that ids never repeat, and whose ids all fit the record's 32
// bits, so that the last id read marks where the next page starts.
Statement PageableStatement(DbKind kind, const std::string& table);
// A page of `shown` (SelectAllStatement or IntervalStatement of `table`): at
// most `rows` of its rows, those after id `afterId` when given. Only the
// text sent changes: `shown` still names the statement.
Statement PageStatement(DbKind kind, const std::string& table, const Statement& shown,
                        std::optional<uint32_t> afterId, uint32_t rows);

// `select` under an outer SQLite select that hands every float column over
// exactly (ExactSqliteDouble); its columns must be the table's.
std::string ExactFloatsSelect(const TableLayout& table, const std::string& select);

}  // namespace scadastore::record
