// How kept writes reach the database: each batch in one transaction together
// with the spool's sequence number in the table "scadastore_spool", so that a
// write committed once is never forwarded again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/connection.h"
#include "core/spool_journal.h"

namespace scadastore {

// The sequence number the database holds for this spool, after creating
// the table and the spool's row where missing.
bool ReadForwardedSequence(DbConnection& db, const std::string& spoolId, uint64_t& sequence);

enum class ForwardOutcome { kCommitted, kUnreachable, kRefused };

// Stores the writes under the ids after each table's largest and records
// `sequence` for the spool, all in one transaction; on failure `reason` has
// the database's text. Records sent before with an unknown
// outcome are stored only when they are not already there with exactly
// their values.
ForwardOutcome ForwardWrites(DbConnection& db, const std::string& spoolId, uint64_t sequence,
                             const std::vector<const KeptWrite*>& writes, std::string& reason);

}  // namespace scadastore
