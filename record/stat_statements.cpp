#include "record/stat_statements.h"

#include "core/sql_text.h"
#include "record/data_layout.h"

namespace scadastore::record {
namespace {

// The select list may grow to this many characters before a column is refused;
// the statement buffer keeps room for the tail after it.
constexpr size_t kSelectListLimit = 7680;
constexpr uint32_t kColumnPieceBuffer = 128;
constexpr uint32_t kTailBuffer = 128;

const char* AggregateOf(Statistic statistic) {
  switch (statistic) {
    case Statistic::Max: return "max";
    case Statistic::Min: return "min";
    case Statistic::Sum: return "sum";
    case Statistic::Average: return "avg";
  }
  return "avg";
}

}  // namespace

Statistic StatisticOfCode(uint32_t code) {
  switch (code) {
    case SCADASTORE_STAT_MAX: return Statistic::Max;
    case SCADASTORE_STAT_MIN: return Statistic::Min;
    case SCADASTORE_STAT_SUM:
    case SCADASTORE_STAT_SUM_MODE: return Statistic::Sum;
    default: return Statistic::Average;
  }
}

Statistic ResolveStatistic(uint32_t statKind, uint32_t statMode) {
  const bool callerChose = statKind >= SCADASTORE_STAT_MAX && statKind <= SCADASTORE_STAT_SUM;
  return StatisticOfCode(callerChose ? statKind : statMode);
}

Statement StatementBuilder(DbKind kind, const DataTableInfo& table, Statistic statistic,
                           uint32_t start, uint32_t end) {
  const SqlDialect dialect = DialectOf(kind);
  Statement statement{{}, false};
  if (start >= end) return statement;
  std::string& text = statement.text;
  text = "select";
  bool first = true;
  for (const ColumnLayout& column : Layout(table)) {
    if (text.size() >= kSelectListLimit) return statement;
    if (column.type != SCADASTORE_VALUE_FLOAT) continue;
    text += FormatStatement(dialect, kColumnPieceBuffer, "%s %s(`%.*s`)", first ? "" : ",",
                            AggregateOf(statistic), static_cast<int>(column.name.size()),
                            column.name.data())
                .text;
    first = false;
  }
  text += " from ";
  statement.complete = true;
  // The table's name and the bounds share one short buffer: a long name cuts
  // the condition, and what is left may compute over other rows.
  std::string name(TableName(&table));
  statement += FormatStatement(dialect, kTailBuffer, "`%s` where (`time`>=%d) and (`time`<%d)",
                               name.c_str(), static_cast<int32_t>(start), static_cast<int32_t>(end));
  return statement;
}

int DaysInMonth(int year, int month) {
  switch (month) {
    case 4:
    case 6:
    case 9:
    case 11: return 30;
    case 2: {
      bool leap = year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
      return leap ? 29 : 28;
    }
    default: return 31;
  }
}

}  // namespace scadastore::record
