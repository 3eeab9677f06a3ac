// Statement texts of the alarm family, as pure functions of the kind and the
// caller's inputs (the shared ones are in core/common_statements.h). Each
// fixed statement is cut like the bounded buffer named beside it; caller
// texts are bound values (Statement in core/sql_text.h).
#pragma once

#include <cstdint>
#include <string>

#include "core/batch_insert.h"
#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore::alarm {

constexpr uint32_t kWriteBufferSize = 2048;  // almSetAlarm: largest id and inserts

Statement CreateTableStatement(DbKind kind, const char* table);
// `record` is one AlarmRecord of the caller's buffer; its id is not read.
Statement InsertStatement(DbKind kind, const char* table, uint32_t id,
                          const void* record);
// The insert's head and its values bound, for batches of alarms.
extern const FixedRecordInserts kInserts;
Statement ConfirmStatement(DbKind kind, const char* table, uint32_t status, uint32_t id);
Statement RecoverStatement(DbKind kind, const char* table, uint32_t recovertime, uint32_t id);

// The select of an AlarmQuery: its 32-byte head and the lists that follow.
// Unbounded; each piece is cut at kStatementSize - 1 characters, and the
// statement is then incomplete.
Statement QueryStatement(DbKind kind, const char* table, const void* query);

}  // namespace scadastore::alarm
