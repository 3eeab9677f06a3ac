// Stores many data records: in multi-row batches where the kind allows
// them, else one record per call.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/cli/database/data_table.h"
#include "tools/cli/output/progress.h"
#include "tools/cli/database/session.h"

namespace scadastore::cli {

// Records per batch: the statement grows by one row text per record, so
// batches are sized to a few megabytes of text whatever the columns.
size_t RecordsPerBatch(const DataTable& table);

// Stores `count` records lying back to back. When a call fails, throws a
// StoreError: the records before `stored` are in the table, the rest not.
struct StoreError : CommandError {
  StoreError(size_t stored, const std::string& text) : CommandError(text), stored(stored) {}
  size_t stored;
};
void StoreRecords(Session& session, const DataTable& table, const uint8_t* records, size_t count,
                  Progress& progress, size_t progressBase = 0);

}  // namespace scadastore::cli
