#include "core/settings.h"

#include <cstdlib>
#include <cstring>

#include "core/format.h"

namespace scadastore {
namespace {

// Copies the field [begin, end) into a 64-byte settings field, cut to 63.
void StoreField(char (&field)[64], const char* begin, const char* end) {
  FormatBounded(field, sizeof field, "%.*s", static_cast<int>(end - begin), begin);
}

}  // namespace

ConnectionSettings& Settings() {
  static ConnectionSettings settings;
  return settings;
}

bool ParseSettings(const char* config, ConnectionSettings& out) {
  if (config == nullptr) return false;
  const char* dsnEnd = std::strchr(config, ';');
  if (dsnEnd == nullptr || dsnEnd == config) return false;
  const char* userEnd = std::strchr(dsnEnd + 1, ';');
  if (userEnd == nullptr) return false;
  const char* passwordEnd = std::strchr(userEnd + 1, ';');
  if (passwordEnd == nullptr) return false;
  const char* kindText = passwordEnd + 1;
  if (*kindText == '\0') return false;
  int kind = std::atoi(kindText);
  if (kind < 1 || kind > 6) return false;

  StoreField(out.dsn, config, dsnEnd);
  StoreField(out.user, dsnEnd + 1, userEnd);
  StoreField(out.password, userEnd + 1, passwordEnd);
  out.kind = kind;
  return true;
}

SqlDialect DialectOf(DbKind kind) {
  if (kind == 2) return SqlDialect::Backtick;
  if (kind == 1 || kind == 6 || kind == 3) return SqlDialect::Bracket;
  return SqlDialect::DoubleQuote;
}

char OpenQuote(SqlDialect dialect) {
  switch (dialect) {
    case SqlDialect::Backtick: return '`';
    case SqlDialect::Bracket: return '[';
    case SqlDialect::DoubleQuote: break;
  }
  return '"';
}

char CloseQuote(SqlDialect dialect) {
  return dialect == SqlDialect::Bracket ? ']' : OpenQuote(dialect);
}

}  // namespace scadastore
