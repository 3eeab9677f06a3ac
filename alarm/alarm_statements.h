// Statement texts of the alarm family, as pure functions of the dialect and
// the caller's inputs. Each fixed statement is cut like the bounded buffer
// named beside it; caller texts are escaped for their single quotes.
#pragma once

#include <cstdint>
#include <string>

#include "core/settings.h"

namespace scadastore::alarm {

constexpr uint32_t kCreateBufferSize = 512;
constexpr uint32_t kWriteBufferSize = 2048;  // almSetAlarm: largest id and inserts
constexpr uint32_t kBufferSize = 256;        // every other statement and query piece

std::string CreateTableStatement(SqlDialect dialect, const char* table);
std::string CreateIndexStatement(SqlDialect dialect, const char* table);
std::string LargestIdStatement(SqlDialect dialect, const char* table, uint32_t bufferSize);
// `record` is one AlarmRecord of the caller's buffer; its id is not read.
std::string InsertStatement(SqlDialect dialect, const char* table, uint32_t id,
                            const void* record);
std::string ConfirmStatement(SqlDialect dialect, const char* table, uint32_t status, uint32_t id);
std::string RecoverStatement(SqlDialect dialect, const char* table, uint32_t recovertime,
                             uint32_t id);
std::string SelectAllStatement(SqlDialect dialect, const char* table);
std::string CountStatement(SqlDialect dialect, const char* table);

// The select of an AlarmQuery: its 32-byte head and the lists that follow.
// Unbounded; each piece is cut at kBufferSize - 1 characters.
std::string QueryStatement(SqlDialect dialect, const char* table, const void* query);

}  // namespace scadastore::alarm
