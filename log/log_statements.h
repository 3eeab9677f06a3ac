// Statement texts of the log store, built in the dialect of the caller's kind.
#pragma once

#include <cstdint>
#include <string>

#include "core/settings.h"

namespace scadastore::log {

// Buffer sizes of the statements; a longer text is cut and the database rejects it.
constexpr uint32_t kCreateBufferSize = 512;
constexpr uint32_t kShortBufferSize = 256;
constexpr uint32_t kLongBufferSize = 2048;
constexpr uint32_t kInsertBufferSize = 1024;

// The thirteen columns; the backtick dialect's kind adds its table options.
std::string CreateTableStatement(SqlDialect dialect, const char* table);
std::string CreateIndexStatement(SqlDialect dialect, const char* table);

// Highest id: logSetLog builds it in the long buffer, logGetLastID in the short one.
std::string MaxIdStatement(SqlDialect dialect, const char* table, uint32_t bufferSize);
std::string CountStatement(SqlDialect dialect, const char* table);
std::string AllEntriesStatement(SqlDialect dialect, const char* table);
// Entries with startTime <= logtime <= endTime, in id order.
std::string TimeRangeStatement(SqlDialect dialect, const char* table, uint32_t startTime,
                               uint32_t endTime);

// Stores `record` (a LogRecord, possibly unaligned) under `id`; rsvd is left NULL.
std::string InsertStatement(SqlDialect dialect, const char* table, uint32_t id,
                            const void* record);

}  // namespace scadastore::log
