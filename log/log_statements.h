// Statement texts of the log store, built in the dialect of the caller's kind
// (the shared ones are in core/common_statements.h).
#pragma once

#include <cstdint>
#include <string>

#include "core/batch_insert.h"
#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore::log {

// Buffer sizes of the statements; a longer text is cut and the database rejects it.
constexpr uint32_t kLongBufferSize = 2048;  // logSetLog's largest id, time ranges
constexpr uint32_t kInsertBufferSize = 1024;

// The thirteen columns; kind 2 adds its table options.
Statement CreateTableStatement(DbKind kind, const char* table);

// Entries with startTime <= logtime <= endTime, in id order.
Statement TimeRangeStatement(DbKind kind, const char* table, uint32_t startTime, uint32_t endTime);

// Stores `record` (a LogRecord, possibly unaligned) under `id`; rsvd is left
// NULL. Incomplete when its shown text does not fit kInsertBufferSize.
Statement InsertStatement(DbKind kind, const char* table, uint32_t id, const void* record);
// The insert's head and its values bound, for batches of entries.
extern const FixedRecordInserts kInserts;

}  // namespace scadastore::log
