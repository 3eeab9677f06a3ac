// The statements of the table "scadastore_spool", where each spool's sequence
// number says which of its writes the database holds. The spool's id is bound.
#pragma once

#include <cstdint>
#include <string>

#include "core/sql_text.h"

namespace scadastore {

Statement ForwardedSequenceSelect(SqlDialect dialect, const std::string& spoolId);
Statement ForwardedSequenceInsert(SqlDialect dialect, const std::string& spoolId);
Statement ForwardedSequenceUpdate(SqlDialect dialect, const std::string& spoolId,
                                  uint64_t sequence);
Statement SequenceTableCreate(SqlDialect dialect);

}  // namespace scadastore
