// The statements of the figures that the database computes in one go over
// a time range: down-sampled trends (M4), bucket min/max/average, and
// time-weighted averages and integrals. Pure functions of the kind.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/settings.h"
#include "tools/cli/times.h"

namespace scadastore::cli {

// Equal buckets of `width` seconds from range.start; the last may be shorter.
struct Buckets {
  Slot range;
  uint32_t width;
  size_t count() const { return (static_cast<uint64_t>(range.end) - range.start + width - 1) / width; }
};
// At most `most` buckets over the range, each a whole number of `unit` seconds.
Buckets SplitRange(Slot range, size_t most, uint32_t unit = 1);

// A float column as SQLite must give it to keep every bit: its driver
// passes doubles through 15-digit text, so the value goes as an exact
// integer mantissa and a power of two, "k m" for m * 2^-k.
std::string ExactSqliteFloat(const std::string& column);
// A float as ExactSqliteFloat or any database writes it.
double ParseExactFloat(const std::string& text);

// Per bucket, the rows holding the first, the last, and each column's
// minimum and maximum sample (the M4 rule, which keeps a trend's shape):
// id, time, ms, modify, the columns, then the flags first, last and a
// minimum and maximum flag per column (1 where the row is that point), in
// time order. `sqlite`: a shape SQLite runs fast, floats as ExactSqliteFloat.
std::string M4Statement(DbKind kind, const std::string& table,
                        const std::vector<std::string>& columns, const Buckets& buckets,
                        bool sqlite);

// Per bucket with samples: the bucket's number, then the minimum, maximum
// and average of each column.
std::string BucketFiguresStatement(DbKind kind, const std::string& table,
                                   const std::vector<std::string>& columns,
                                   const Buckets& buckets);

// Over the slot, with each sample holding until the next one (the last one
// before the slot holds from its start): per column the integral
// (value x seconds) and the seconds that have a value.
std::string TimeWeightedStatement(DbKind kind, const std::string& table,
                                  const std::vector<std::string>& columns, const Slot& slot);

}  // namespace scadastore::cli
