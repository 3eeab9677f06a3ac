// Statement text: templates, identifier quoting and text literals.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/settings.h"

namespace scadastore {

// What every statement builder returns: the text, and whether it was built
// whole. An incomplete text was cut at its buffer or stopped at a limit.
// `text` is the documented form that error texts show, a caller's text value
// standing there between single quotes with its quotes doubled. Text values
// never travel inside the statement, though: `sql` holds `?` in their places
// and `texts` the values, bound in that order (both empty without values).
// A builder may also set `sql` alone, to send another form of the same query.
struct Statement {
  std::string text;
  bool complete = true;
  std::string sql = {};
  std::vector<std::string> texts = {};

  // Appends a piece; the whole is complete only when every piece is.
  Statement& operator+=(const Statement& piece);
  // Appends a caller's text value.
  Statement& AppendText(std::string_view value);
  // Cuts the shown text as a buffer of `bufferSize` bytes would hold it.
  Statement& Bound(size_t bufferSize);
  // What the database receives.
  const std::string& Sent() const { return sql.empty() ? text : sql; }
};

// The buffer of the short statements (lookups, counts, deletes by id).
constexpr uint32_t kStatementSize = 256;

// Formats a statement written in the backtick dialect into a zeroed buffer of
// `bufferSize` bytes with FormatBounded, each backtick of the template replaced
// by the dialect's opening or closing quote (alternately). Arguments are never
// rewritten, so a table name is used exactly as given. The text is as the
// bounded buffer holds it (cut at bufferSize - 1 characters, then incomplete).
Statement FormatStatement(SqlDialect dialect, uint32_t bufferSize, const char* backtickTemplate,
                          ...) __attribute__((format(printf, 3, 4)));

// A table or column name between the dialect's quotes, as given.
std::string QuoteName(SqlDialect dialect, std::string_view name);

// The template converted to the dialect (exposed for builders that append pieces).
std::string DialectTemplate(SqlDialect dialect, const char* backtickTemplate);

// The text of a fixed-width field: up to its NUL, never beyond `width` bytes.
std::string_view FieldText(const void* field, size_t width);

}  // namespace scadastore
