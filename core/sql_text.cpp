#include "core/sql_text.h"

#include <cstdarg>
#include <cstring>
#include <vector>

#include "core/format.h"

namespace scadastore {

std::string DialectTemplate(SqlDialect dialect, const char* backtickTemplate) {
  std::string converted(backtickTemplate);
  if (dialect == SqlDialect::Backtick) return converted;
  bool opening = true;
  for (char& c : converted) {
    if (c != '`') continue;
    c = opening ? OpenQuote(dialect) : CloseQuote(dialect);
    opening = !opening;
  }
  return converted;
}

Statement FormatStatement(SqlDialect dialect, uint32_t bufferSize, const char* backtickTemplate,
                          ...) {
  std::string format = DialectTemplate(dialect, backtickTemplate);
  std::vector<char> buffer(bufferSize, '\0');
  va_list args;
  va_start(args, backtickTemplate);
  const bool complete = FormatBoundedV(buffer.data(), bufferSize, format.c_str(), args) >= 0;
  va_end(args);
  return {std::string(buffer.data()), complete};
}

Statement& Statement::operator+=(const Statement& piece) {
  if (!texts.empty() || !piece.texts.empty()) {
    if (texts.empty()) sql = text;
    sql += piece.Sent();
    texts.insert(texts.end(), piece.texts.begin(), piece.texts.end());
  }
  text += piece.text;
  complete = complete && piece.complete;
  return *this;
}

Statement& Statement::AppendText(std::string_view value) {
  if (texts.empty()) sql = text;
  text += '\'';
  for (char c : value) {
    text += c;
    if (c == '\'') text += c;
  }
  text += '\'';
  sql += '?';
  texts.emplace_back(value);
  return *this;
}

Statement& Statement::Bound(size_t bufferSize) {
  if (text.size() > bufferSize - 1) {
    text.resize(bufferSize - 1);
    complete = false;
  }
  return *this;
}

std::string_view FieldText(const void* field, size_t width) {
  const char* text = static_cast<const char*>(field);
  const void* end = std::memchr(text, '\0', width);
  return std::string_view(text, end ? static_cast<const char*>(end) - text : width);
}

std::string QuoteName(SqlDialect dialect, std::string_view name) {
  return OpenQuote(dialect) + std::string(name) + CloseQuote(dialect);
}

}  // namespace scadastore
