// The interval statistics exports: one aggregate statement per slot, all
// slots of a call on one connection.
#include <algorithm>
#include <utility>
#include <vector>

#include "core/bytes.h"
#include "core/exact_double.h"
#include "core/export_call.h"
#include "record/data_layout.h"
#include "record/stat_statements.h"
#include "scadastore.h"

using namespace scadastore;
using namespace scadastore::record;

namespace {

constexpr uint32_t kSecondsPerHour = 3600;
constexpr uint32_t kSecondsPerDay = 86400;
// No statKind of the caller: the table's statMode decides.
constexpr uint32_t kTableStatistic = 0;

using Interval = std::pair<uint32_t, uint32_t>;

// Writes the slot's head, then the statistic of every float column over the
// interval into its value place. An interval without rows reads NULLs, which
// leave the caller's bytes in place.
bool FillSlot(ExportCall& call, const DataTableInfo& table, const std::vector<ColumnLayout>& layout,
              Statistic statistic, unsigned char* slot, Interval interval) {
  StoreField<uint32_t>(slot, 0, 0);
  StoreField<uint32_t>(slot, 4, interval.first);
  StoreField<uint32_t>(slot, 8, 0);
  StoreField<uint32_t>(slot, 12, 0);
  const Statement statement =
      StatementBuilder(call.kind(), table, statistic, interval.first, interval.second);
  if (!statement.complete) {
    call.Fail(Serial::kCreateSql, statement);
    return false;
  }
  // Most databases reject the empty select list of a table without float
  // columns, but PostgreSQL runs it as a select of no columns: refuse it alike.
  const auto floats = static_cast<size_t>(std::count_if(layout.begin(), layout.end(), [](const ColumnLayout& column) {
    return column.type == SCADASTORE_VALUE_FLOAT;
  }));
  if (floats == 0) {
    call.Fail(Serial::kOpenTable, statement);
    return false;
  }
  // SQLite's driver hands doubles over as 15-digit text: its statistics come exactly.
  DbConnection& db = call.db();
  if (!(statement.texts.empty() && db.OnSqlite() &&
        db.TryOpenQuery(ExactSqliteDoubles(statement.Sent(), floats).c_str())) &&
      !call.Query(statement))
    return false;
  db.MoveToFirstRow();
  uint16_t resultColumn = 1;
  for (const ColumnLayout& column : layout) {
    if (column.type != SCADASTORE_VALUE_FLOAT) continue;
    if (!db.GetDouble(resultColumn, BytesAt(slot, column.offset), sizeof(double))) {
      call.FailField(resultColumn);
      return false;
    }
    ++resultColumn;
  }
  return true;
}

// The body of all four exports: `slotCount` slots of recordSize bytes back to
// back in `buffer`, slot k over intervalOf(k). `argumentsValid` is the
// export's own check of its further arguments.
template <class IntervalOf>
uint32_t FillSlots(const ExportCode& code, CallerToken token, const DataTableInfo* table,
                   uint32_t statKind, bool argumentsValid, void* buffer, uint32_t size,
                   int64_t slotCount, IntervalOf&& intervalOf) {
  return RunExport(code, [&](ExportCall& call) -> uint32_t {
    if (!token || !table || !buffer || !argumentsValid || slotCount < 0 ||
        slotCount * int64_t{table->recordSize} != int64_t{size})
      return call.InvalidParameter();
    std::vector<ColumnLayout> layout = Layout(*table);
    // A recordSize too small for the values would overrun the caller's buffer.
    if (table->recordSize < PackedRecordSize(layout)) return call.InvalidParameter();
    if (!call.Open()) return call.failure();
    Statistic statistic = ResolveStatistic(statKind, table->statMode);
    auto* slot = static_cast<unsigned char*>(buffer);
    for (int64_t k = 0; k < slotCount; ++k, slot += table->recordSize)
      if (!FillSlot(call, *table, layout, statistic, slot, intervalOf(k))) return call.failure();
    return 0;
  });
}

// Slots of fixed length from startTime; times wrap as unsigned 32-bit seconds.
auto FixedSlots(uint32_t startTime, uint32_t seconds) {
  return [=](int64_t k) {
    return Interval(startTime + seconds * static_cast<uint32_t>(k),
                    startTime + seconds * static_cast<uint32_t>(k + 1));
  };
}

}  // namespace

extern "C" {

uint32_t sgGetRecordStatValueOfInterval(CallerToken token, const DataTableInfo* table,
                                        uint32_t statKind, int32_t startTime, int32_t endTime,
                                        DataRecord* record, uint32_t size) {
  Interval interval(static_cast<uint32_t>(startTime), static_cast<uint32_t>(endTime));
  return FillSlots(Export::kSgGetRecordStatValueOfInterval, token, table, statKind,
                   startTime <= endTime, record, size, 1, [&](int64_t) { return interval; });
}

uint32_t sgGetRecord_Day(CallerToken token, const DataTableInfo* table, uint32_t, uint32_t startTime,
                         uint32_t, uint32_t, uint32_t, void* slots, uint32_t size) {
  return FillSlots(Export::kSgGetRecordDay, token, table, kTableStatistic, true, slots, size, 24,
                   FixedSlots(startTime, kSecondsPerHour));
}

uint32_t sgGetRecord_Month(CallerToken token, const DataTableInfo* table, uint32_t,
                           uint32_t startTime, uint32_t, uint32_t, int32_t days, void* slots,
                           uint32_t size) {
  return FillSlots(Export::kSgGetRecordMonth, token, table, kTableStatistic, true, slots, size,
                   days, FixedSlots(startTime, kSecondsPerDay));
}

uint32_t sgGetRecord_Year(CallerToken token, const DataTableInfo* table, uint32_t,
                          uint32_t startTime, int32_t year, void* slots, uint32_t size) {
  auto dayOfMonthStart = [year](int64_t month) {
    uint32_t days = 0;
    for (int m = 1; m <= month; ++m) days += DaysInMonth(year, m);
    return days;
  };
  return FillSlots(Export::kSgGetRecordYear, token, table, kTableStatistic, true, slots, size, 12,
                   [&](int64_t k) {
                     return Interval(startTime + kSecondsPerDay * dayOfMonthStart(k),
                                     startTime + kSecondsPerDay * dayOfMonthStart(k + 1));
                   });
}

}  // extern "C"
