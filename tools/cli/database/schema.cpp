#include "tools/cli/database/schema.h"

#include <algorithm>

#include <fmt/format.h>

namespace scadastore::cli {
namespace {

const char* const kRecordHead[] = {"id", "time", "ms", "modify"};

uint32_t ValueTypeOf(int sqlType) {
  switch (sqlType) {
    case SQL_DOUBLE:
    case SQL_FLOAT:
    case SQL_REAL:
    case SQL_NUMERIC:
    case SQL_DECIMAL:
      return SCADASTORE_VALUE_FLOAT;
    case SQL_INTEGER:
    case SQL_SMALLINT:
    case SQL_TINYINT:
    case SQL_BIGINT:
    case SQL_BIT:
      return SCADASTORE_VALUE_INTEGER;
    case SQL_CHAR:
    case SQL_VARCHAR:
    case SQL_LONGVARCHAR:
    case SQL_WCHAR:
    case SQL_WVARCHAR:
    case SQL_WLONGVARCHAR:
      return SCADASTORE_VALUE_TEXT;
    default:
      return 0;
  }
}

// Catalog calls run on the tool's connection; their failure is the
// database's reason.
template <typename Call>
void Catalog(Session& session, Call call) {
  try {
    OdbcStatement statement = session.Database().Statement();
    call(statement);
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("cannot read the tables of {}: {}", session.Describe(),
                                   error.what()));
  }
}

}  // namespace

std::string TableSchema::Kind() const {
  bool data = columns.size() >= 4 && std::equal(std::begin(kRecordHead), std::end(kRecordHead),
                                                columns.begin(), [](const char* name, auto& c) {
                                                  return c.name == name;
                                                });
  if (data) return "data";
  if (Has("arisetime")) return "alarm";
  if (Has("logtime")) return "log";
  return "other";
}

bool TableSchema::Has(const std::string& column) const {
  return std::any_of(columns.begin(), columns.end(),
                     [&](const SchemaColumn& c) { return c.name == column; });
}

std::vector<SchemaColumn> TableSchema::ValueColumns() const {
  if (Kind() != "data") return {};
  return {columns.begin() + 4, columns.end()};
}

std::string TableSchema::ColumnList() const {
  std::vector<std::string> names;
  for (const SchemaColumn& column : columns) names.push_back(column.name);
  return JoinNames(names);
}

std::string JoinNames(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
  return list;
}

std::vector<std::string> ListTables(Session& session) {
  std::vector<std::string> names;
  // MariaDB lists the tables of every database on the server without a
  // catalog: only the data source's own database is looked in.
  std::string catalog = session.Database().DatabaseName();
  if (session.kind() != 2) catalog.clear();
  Catalog(session, [&](OdbcStatement& statement) {
    statement.Tables(catalog);
    while (statement.Fetch()) names.push_back(statement.Text(3).value_or(""));
  });
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

TableSchema ReadSchema(Session& session, const std::string& table) {
  TableSchema schema{table, {}};
  Catalog(session, [&](OdbcStatement& statement) {
    statement.Columns(table);
    std::optional<std::string> schemaName;  // of the first match: one table only
    while (statement.Fetch()) {
      // The name is a pattern ('_' matches any character): keep exact names.
      if (statement.Text(3) != table) continue;
      std::optional<std::string> owner = statement.Text(2);
      if (schema.columns.empty()) schemaName = owner;
      if (owner != schemaName) continue;
      int sqlType = std::atoi(statement.Text(5).value_or("0").c_str());
      schema.columns.push_back(
          {statement.Text(4).value_or(""), statement.Text(6).value_or(""), ValueTypeOf(sqlType)});
    }
  });
  if (schema.columns.empty()) {
    std::string known = JoinNames(ListTables(session));
    throw CommandError(fmt::format("no table {} in {} (tables: {})", table, session.Describe(),
                                   known.empty() ? "none" : known));
  }
  return schema;
}

bool TableExists(Session& session, const std::string& table) {
  std::vector<std::string> names = ListTables(session);
  return std::find(names.begin(), names.end(), table) != names.end();
}

std::vector<std::string> ReadIndexes(Session& session, const std::string& table) {
  std::vector<std::pair<std::string, std::string>> parts;  // index, column
  Catalog(session, [&](OdbcStatement& statement) {
    statement.Indexes(table);
    while (statement.Fetch()) {
      if (statement.Text(3) != table || statement.Text(7) == std::to_string(SQL_TABLE_STAT))
        continue;
      parts.emplace_back(statement.Text(6).value_or(""), statement.Text(9).value_or(""));
    }
  });
  std::vector<std::string> indexes;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0 && parts[i].first == parts[i - 1].first) {
      indexes.back().insert(indexes.back().size() - 1, ", " + parts[i].second);
      continue;
    }
    indexes.push_back(fmt::format("{} ({})", parts[i].first, parts[i].second));
  }
  return indexes;
}

std::vector<size_t> SelectColumns(const std::vector<std::string>& columns,
                                  const std::string& list, const std::string& table) {
  std::vector<size_t> chosen;
  if (list.empty()) {
    for (size_t c = 0; c < columns.size(); ++c) chosen.push_back(c);
    return chosen;
  }
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = std::min(list.find(',', start), list.size());
    std::string name = list.substr(start, end - start);
    start = end + 1;
    auto found = std::find(columns.begin(), columns.end(), name);
    if (found == columns.end())
      throw UsageError(fmt::format("--columns: {} has no column '{}' (its columns: {})", table,
                                   name, JoinNames(columns)));
    chosen.push_back(static_cast<size_t>(found - columns.begin()));
  }
  return chosen;
}

}  // namespace scadastore::cli
