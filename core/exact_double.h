// Doubles handed over exactly by SQLite, whose ODBC driver passes a double
// through 15-digit text: the select hands over an integer mantissa and a
// power of two instead, as text, and the reader puts them together.
#pragma once

#include <optional>
#include <string>

namespace scadastore {

// The SQLite expression of the quoted column `column` as "k m" for m * 2^-k
// (0 as itself, NULL as NULL). m keeps the 53 bits of the double; k is at
// most 1127 (the smallest subnormal), taken as two powers of two that stay finite
// where one would not.
std::string ExactSqliteDouble(const std::string& column);

// `select` of `columns` doubles under an outer select that hands each over
// as ExactSqliteDouble does, whatever the inner columns are named.
std::string ExactSqliteDoubles(const std::string& select, size_t columns);

// A decimal or the "k m" form; nothing when the text is no number.
std::optional<double> ParseExactDouble(const char* text);

}  // namespace scadastore
