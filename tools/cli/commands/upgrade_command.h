// `tables upgrade`: brings alarm, log and data tables made before to the
// column types and comparison that new tables get.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

#include "tools/cli/command.h"

namespace scadastore::cli {

// The one alter statement that brings `schema` to the rules of new tables
// on this database; empty when it already follows them.
std::string UpgradeStatement(Session& session, const TableSchema& schema);

// Adds `upgrade` under the `tables` command.
void AddTablesUpgrade(CLI::App& tables, Context& context);

}  // namespace scadastore::cli
