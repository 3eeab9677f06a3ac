// Aggregate statements of the interval statistics and the calendar they step by.
#pragma once

#include <cstdint>
#include <string>

#include "core/settings.h"
#include "core/sql_text.h"
#include "scadastore.h"

namespace scadastore::record {

enum class Statistic { Max, Min, Sum, Average };

// The caller's statKind when it is 1 to 4, else the table's statMode; then
// 1 max, 2 min, 4 or 5 sum, anything else average.
Statistic ResolveStatistic(uint32_t statKind, uint32_t statMode);
Statistic StatisticOfCode(uint32_t code);

// select <aggregate> of every float column over start <= time < end.
// Incomplete: with an empty text unless start < end as unsigned numbers, with
// the text so far when the select list grows past its limit, and cut when the
// table's name leaves no room for the condition.
Statement StatementBuilder(DbKind kind, const DataTableInfo& table, Statistic statistic,
                           uint32_t start, uint32_t end);

// Gregorian month length, month 1 to 12.
int DaysInMonth(int year, int month);

}  // namespace scadastore::record
