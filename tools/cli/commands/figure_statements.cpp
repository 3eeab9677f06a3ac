#include "tools/cli/commands/figure_statements.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "core/exact_double.h"
#include "core/sql_text.h"

namespace scadastore::cli {
namespace {

std::string Q(DbKind kind, const std::string& name) { return QuoteName(DialectOf(kind), name); }

// "a, b, c" of each column through `item`.
template <typename Item>
std::string EachColumn(const std::vector<std::string>& columns, Item item) {
  std::string list;
  for (size_t c = 0; c < columns.size(); ++c) list += ", " + item(c);
  return list;
}

std::string BucketOf(DbKind kind, const Buckets& buckets) {
  return fmt::format("({} - {}) {} {}", Q(kind, "time"), buckets.range.start,
                     IntegerDivision(kind), buckets.width);
}

std::string InRange(DbKind kind, const Slot& range) {
  return fmt::format("{0} >= {1} and {0} < {2}", Q(kind, "time"), range.start, range.end);
}

}  // namespace

Buckets SplitRange(Slot range, size_t most, uint32_t unit) {
  uint64_t span = static_cast<uint64_t>(range.end) - range.start;
  uint64_t units = (span + unit - 1) / unit;
  uint64_t perBucket = std::max<uint64_t>(1, (units + most - 1) / most);
  return {range, static_cast<uint32_t>(perBucket * unit)};
}

std::string ExactSqliteFloat(const std::string& column) { return ExactSqliteDouble(column); }

double ParseExactFloat(const std::string& text) { return ParseExactDouble(text.c_str()).value_or(0.0); }

namespace {

// SQLite sorts the whole range once per window: instead, each point is one
// grouped scan, where SQLite takes the id from the row that holds the
// bucket's single min() or max(), and the picked rows are joined back.
std::string SqliteM4Statement(DbKind kind, const std::string& table,
                              const std::vector<std::string>& columns, const Buckets& buckets) {
  // first, last, then a minimum and a maximum per column
  const size_t flags = 2 + 2 * columns.size();
  std::vector<std::string> picks = {"min(at)", "max(at)"};
  for (const std::string& column : columns)
    for (const char* extreme : {"min", "max"})
      picks.push_back(fmt::format("{}({})", extreme, Q(kind, column)));
  std::string unions;
  for (size_t p = 0; p < flags; ++p) {
    std::string marks;
    for (size_t f = 0; f < flags; ++f) marks += f == p ? ", 1" : ", 0";
    unions += fmt::format("{}select id{} from (select id, {} from bucketed group by b)",
                          p == 0 ? "" : " union all ", marks, picks[p]);
  }
  std::string names, maxima;
  for (size_t f = 0; f < flags; ++f) {
    names += fmt::format(", p{}", f);
    maxima += fmt::format(", max(picks.p{})", f);
  }
  std::string values = EachColumn(columns, [&](size_t c) { return Q(kind, columns[c]); });
  std::string shown =
      EachColumn(columns, [&](size_t c) { return ExactSqliteFloat("t." + Q(kind, columns[c])); });
  return fmt::format(
      "with bucketed as (select {0} as id, {1} * 1000 + coalesce({2}, 0) as at{3}, {4} as b from "
      "{5} where {6}), picks(id{7}) as ({8}) select t.{0}, t.{1}, t.{2}, t.{9}{10}{11} from "
      "picks join {5} t on t.{0} = picks.id group by t.{0} order by t.{1}, t.{2}, t.{0}",
      Q(kind, "id"), Q(kind, "time"), Q(kind, "ms"), values, BucketOf(kind, buckets),
      Q(kind, table), InRange(kind, buckets.range), names, unions, Q(kind, "modify"), shown,
      maxima);
}

}  // namespace

std::string M4Statement(DbKind kind, const std::string& table,
                        const std::vector<std::string>& columns, const Buckets& buckets,
                        bool sqlite) {
  if (sqlite) return SqliteM4Statement(kind, table, columns, buckets);
  std::string order = fmt::format("{0}, {1}, {2}", Q(kind, "time"), Q(kind, "ms"), Q(kind, "id"));
  std::string orderDesc =
      fmt::format("{0} desc, {1} desc, {2} desc", Q(kind, "time"), Q(kind, "ms"), Q(kind, "id"));
  std::string values = EachColumn(columns, [&](size_t c) { return Q(kind, columns[c]); });
  // NULLs sort last for minimum and maximum alike, on every database.
  std::string ranks = EachColumn(columns, [&](size_t c) {
    std::string column = Q(kind, columns[c]);
    return fmt::format(
        "row_number() over (partition by b order by case when {0} is null then 1 else 0 end, "
        "{0}, {1}) as n{2}, row_number() over (partition by b order by case when {0} is null "
        "then 1 else 0 end, {0} desc, {1}) as x{2}",
        column, order, c);
  });
  std::string flags = EachColumn(columns, [](size_t c) {
    return fmt::format("case when n{0} = 1 then 1 else 0 end, case when x{0} = 1 then 1 else 0 end", c);
  });
  std::string where;
  for (size_t c = 0; c < columns.size(); ++c) where += fmt::format(" or n{0} = 1 or x{0} = 1", c);
  return fmt::format(
      "select {0}, {1}, {2}, {12}{3}, case when f = 1 then 1 else 0 end, case when l = 1 then "
      "1 else 0 end{4} from (select {0}, {1}, {2}, {12}{3}, row_number() over (partition by b order by "
      "{5}) as f, row_number() over (partition by b order by {6}) as l{7} from (select {0}, {1}, "
      "{2}, {12}{3}, {8} as b from {9} where {10}) bucketed) ranked where f = 1 or l = 1{11} order by "
      "{5}",
      Q(kind, "id"), Q(kind, "time"), Q(kind, "ms"), values, flags, order, orderDesc, ranks,
      BucketOf(kind, buckets), Q(kind, table), InRange(kind, buckets.range), where,
      Q(kind, "modify"));
}

std::string BucketFiguresStatement(DbKind kind, const std::string& table,
                                   const std::vector<std::string>& columns,
                                   const Buckets& buckets) {
  std::string figures = EachColumn(columns, [&](size_t c) {
    return fmt::format("min({0}), max({0}), avg({0})", Q(kind, columns[c]));
  });
  std::string bucket = BucketOf(kind, buckets);
  return fmt::format("select {0}{1} from {2} where {3} group by {0} order by {0}", bucket,
                     figures, Q(kind, table), InRange(kind, buckets.range));
}

std::string TimeWeightedStatement(DbKind kind, const std::string& table,
                                  const std::vector<std::string>& columns, const Slot& slot) {
  std::string time = Q(kind, "time"), ms = Q(kind, "ms"), id = Q(kind, "id");
  std::string values = EachColumn(columns, [&](size_t c) { return Q(kind, columns[c]); });
  // A sample's position in seconds with its milliseconds; the time it
  // holds runs to the next sample or the slot's end, from no earlier than
  // the slot's start.
  std::string position = fmt::format("{} + coalesce({}, 0) / 1000.0", time, ms);
  std::string held = fmt::format(
      "(case when next_at is null or next_at > {0} then {0} else next_at end) - (case when at < "
      "{1} then {1} else at end)",
      slot.end, slot.start);
  std::string sums = EachColumn(columns, [&](size_t c) {
    std::string column = Q(kind, columns[c]);
    return fmt::format("sum({0} * held), sum(case when {0} is null then null else held end)",
                       column);
  });
  sums.erase(0, 2);
  return fmt::format(
      "select {0} from (select {1}{2}, {3} as held from (select {1}{2}, lead(at) over (order by "
      "at, {4}) as next_at from (select {5} as at, {4}{2} from {6} where {7} union all select "
      "at, {4}{2} from (select {5} as at, {4}{2} from {6} where {8} < {9} order by {8} desc, {10} "
      "desc, {4} desc limit 1) before_slot) samples) steps) held_steps",
      sums, "at", values, held, id, position, Q(kind, table), InRange(kind, slot), time,
      slot.start, ms);
}

}  // namespace scadastore::cli
