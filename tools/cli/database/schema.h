// Tables as the database describes them: every command reads the columns
// of its table from here instead of trusting the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/cli/database/session.h"

namespace scadastore::cli {

struct SchemaColumn {
  std::string name;
  std::string typeName;  // the database's own, e.g. "float8"
  uint32_t valueType;    // SCADASTORE_VALUE_*, or 0 when none fits
};

struct TableSchema {
  std::string name;
  std::vector<SchemaColumn> columns;

  // "data", "alarm", "log" or "other", from the columns.
  std::string Kind() const;
  bool Has(const std::string& column) const;
  // The value columns of a data table: those after id, time, ms, modify.
  std::vector<SchemaColumn> ValueColumns() const;
  std::string ColumnList() const;  // "id, time, ..."
};

// "a, b, c"
std::string JoinNames(const std::vector<std::string>& names);

std::vector<std::string> ListTables(Session& session);
// Throws a CommandError "no table NAME" listing the tables there are.
TableSchema ReadSchema(Session& session, const std::string& table);
bool TableExists(Session& session, const std::string& table);
// "name (column, ...)" of each index of the table.
std::vector<std::string> ReadIndexes(Session& session, const std::string& table);

// Positions in `columns` of the names of a comma-separated list, in its
// order; every column when the list is empty. An unknown name is a
// UsageError naming the columns there are.
std::vector<size_t> SelectColumns(const std::vector<std::string>& columns,
                                  const std::string& list, const std::string& table);

}  // namespace scadastore::cli
