// The AlarmRecord as the alarm family stores and reads it. Records reach us
// as caller bytes that may be unaligned, so fields are copied, never cast.
#pragma once

#include <cstdint>

#include "core/connection.h"
#include "scadastore.h"

namespace scadastore::alarm {

constexpr uint32_t kRecordSize = sizeof(AlarmRecord);

// The number stored in the value column: the flag byte under the flag tag
// type, the double otherwise.
double StoredValue(const void* record);

// False when the record cannot be stored as written: a value that is not a
// finite single-precision number, or a text field without its NUL.
bool Writable(const void* record);

// Reads columns 1 to 14 of the current row into a zeroed record. `value`
// carries the value column from row to row, so a NULL value repeats the
// previous row's; start it at 0.0 before the first row.
void ReadAlarmRow(DbConnection& db, void* record, double& value);

}  // namespace scadastore::alarm
