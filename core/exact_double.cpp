#include "core/exact_double.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace scadastore {

std::string ExactSqliteDouble(const std::string& column) {
  // One less than the exponent may come out of log2 just below a power of
  // two: m then has 54 bits, which a 64-bit integer still holds exactly.
  const std::string k = "(53 - cast(floor(log2(abs(" + column + "))) as integer))";
  // From 1e-290 up, k stays below 1024 and one power of two is finite; below,
  // k reaches 1127 and is taken in two halves.
  return "case when abs(" + column + ") >= 1e-290 then " + k + " || ' ' || cast(" + column +
         " * power(2.0, " + k + ") as integer) when " + column + " = 0 then cast(" + column +
         " as text) else " + k + " || ' ' || cast(" + column + " * power(2.0, " + k +
         " / 2) * power(2.0, " + k + " - " + k + " / 2) as integer) end";
}

std::string ExactSqliteDoubles(const std::string& select, size_t columns) {
  std::string names, exact;
  // Appended, not summed: g++ 12 at -O3 warns falsely on "text" + temporary (-Wrestrict).
  for (size_t c = 1; c <= columns; ++c) {
    std::string name = "\"c";
    name += std::to_string(c);
    name += '"';
    if (c > 1) {
      names += ',';
      exact += ',';
    }
    names += name;
    exact += ExactSqliteDouble(name);
  }
  return "with q(" + names + ") as (" + select + ") select " + exact + " from q";
}

std::optional<double> ParseExactDouble(const char* text) {
  char* end = nullptr;
  errno = 0;
  const long long first = std::strtoll(text, &end, 10);
  if (end != text && *end == ' ') {
    const char* mantissa = end + 1;
    const long long m = std::strtoll(mantissa, &end, 10);
    if (end != mantissa && errno == 0)
      return std::ldexp(static_cast<double>(m), static_cast<int>(-first));
  }
  const double value = std::strtod(text, &end);
  if (end == text) return std::nullopt;
  return value;
}

}  // namespace scadastore
