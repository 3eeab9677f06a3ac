// LogRecord rows: how the thirteen columns of a log table land in a record.
#pragma once

#include <cstdint>

#include "core/connection.h"
#include "scadastore.h"

namespace scadastore::log {

constexpr uint32_t kLogRecordSize = sizeof(LogRecord);

// Reads the current row, column by column, into the LogRecord at `record`. A column that cannot
// be read (or is NULL) leaves its field as it was; the last 4 bytes are never touched.
void ReadLogRecord(DbConnection& db, void* record);

// False when a text field of the record has no NUL inside its width.
bool Writable(const void* record);

}  // namespace scadastore::log
