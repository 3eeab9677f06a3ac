#include "core/settings.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/format.h"

namespace scadastore {
namespace {

// Copies the field [begin, end) into a 64-byte settings field, cut to 63.
void StoreField(char (&field)[64], const char* begin, const char* end) {
  FormatBounded(field, sizeof field, "%.*s", static_cast<int>(end - begin), begin);
}

// Reads "name=SECONDS" into `seconds` (from `least` to a day). False when
// the field is this option with a bad value.
bool ReadSeconds(const char* field, size_t length, const char* name, int least, int& seconds) {
  const size_t nameLength = std::strlen(name);
  if (length < nameLength || std::strncmp(field, name, nameLength) != 0) return true;
  const std::string value(field + nameLength, length - nameLength);
  char* end = nullptr;
  const long number = std::strtol(value.c_str(), &end, 10);
  if (value.empty() || *end != '\0' || number < least || number > 86400) return false;
  seconds = static_cast<int>(number);
  return true;
}

// Reads "spoolmax=MEGABYTES" (1 to 2^40). False when the value is bad.
bool ReadMegabytes(const char* field, size_t length, uint64_t& megabytes) {
  constexpr size_t kNameLength = 9;
  if (length < kNameLength || std::strncmp(field, "spoolmax=", kNameLength) != 0) return true;
  const std::string value(field + kNameLength, length - kNameLength);
  char* end = nullptr;
  const unsigned long long number = std::strtoull(value.c_str(), &end, 10);
  if (value.empty() || value[0] == '-' || *end != '\0' || number < 1 || number > (1ull << 40))
    return false;
  megabytes = number;
  return true;
}

// The fields after the kind.
bool ParseOptions(const char* options, ConnectionSettings& out) {
  while (options != nullptr) {
    const char* end = std::strchr(options, ';');
    const size_t length = end ? static_cast<size_t>(end - options) : std::strlen(options);
    if (length == 4 && std::strncmp(options, "pool", 4) == 0) out.pool = true;
    if (length >= 6 && std::strncmp(options, "spool=", 6) == 0) {
      if (length == 6) return false;
      out.spoolDirectory.assign(options + 6, length - 6);
    }
    if (!ReadSeconds(options, length, "login=", 1, out.loginTimeoutSeconds) ||
        !ReadSeconds(options, length, "timeout=", 0, out.statementTimeoutSeconds) ||
        !ReadMegabytes(options, length, out.spoolMegabytes))
      return false;
    options = end ? end + 1 : nullptr;
  }
  return true;
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
  ConnectionSettings options;
  const char* optionsText = std::strchr(kindText, ';');
  if (optionsText != nullptr && !ParseOptions(optionsText + 1, options)) return false;

  out.pool = options.pool;
  out.loginTimeoutSeconds = options.loginTimeoutSeconds;
  out.statementTimeoutSeconds = options.statementTimeoutSeconds;
  out.spoolDirectory = options.spoolDirectory;
  out.spoolMegabytes = options.spoolMegabytes;
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
