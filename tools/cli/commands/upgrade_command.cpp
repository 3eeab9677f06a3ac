#include "tools/cli/commands/upgrade_command.h"

#include <algorithm>
#include <chrono>
#include <set>

#include <fmt/format.h>

namespace scadastore::cli {
namespace {

// Unsigned 32-bit columns of each family; a data table's are its head.
const std::set<std::string> kUnsigned = {"id",          "time",      "ms",        "modify",
                                         "tagtype",     "alarmtype", "status",    "recovertime",
                                         "arisetime",   "ip",        "millisecond", "alarmlevel",
                                         "logtime",     "logtype"};

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

// A signed 32-bit integer as MariaDB ("int") and PostgreSQL ("int4") name it.
bool Signed32(const SchemaColumn& column) {
  std::string type = Lower(column.typeName);
  return type == "int" || type == "int4" || type == "integer";
}

// A text literal of MariaDB, whatever its sql_mode reads into one.
std::string MariaDbLiteral(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("''") : c == '\\' ? std::string("\\\\") : std::string(1, c);
  return out + "'";
}

bool BinaryCollation(Session& session, const std::string& table) {
  OdbcStatement statement = session.Database().Statement();
  statement.Execute("select table_collation from information_schema.tables where table_schema = "
                    "database() and table_name = " + MariaDbLiteral(table));
  if (!statement.Fetch()) return true;
  return statement.Text(1).value_or("").ends_with("_nopad_bin");
}

struct UpgradeOptions {
  std::vector<std::string> tables;
  bool dryRun = false;
};

void RunUpgrade(Context& context, const UpgradeOptions& options) {
  Session& session = context.session;
  std::vector<std::string> tables = options.tables;
  if (tables.empty())
    for (const std::string& name : ListTables(session))
      if (ReadSchema(session, name).Kind() != "other") tables.push_back(name);
  size_t failed = 0, changed = 0;
  for (size_t t = 0; t < tables.size(); ++t) {
    const std::string& table = tables[t];
    std::cout << fmt::format("[{}/{}] {}: ", t + 1, tables.size(), table) << std::flush;
    try {
      TableSchema schema = ReadSchema(session, table);
      if (schema.Kind() == "other") throw CommandError("not an alarm, log or data table");
      std::string alter = UpgradeStatement(session, schema);
      if (alter.empty()) {
        std::cout << "up to date\n";
        continue;
      }
      ++changed;
      if (options.dryRun) {
        std::cout << "would run " << alter << '\n';
        continue;
      }
      std::cout << "altering ... " << std::flush;
      auto started = std::chrono::steady_clock::now();
      session.Database().Statement().Execute(alter);
      std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
      std::cout << fmt::format("done in {:.1f} s\n", took.count());
    } catch (const std::runtime_error& error) {  // CommandError or OdbcError
      std::cout << fmt::format("failed: {}\n", error.what());
      ++failed;
    }
  }
  if (tables.empty()) std::cout << "no alarm, log or data tables\n";
  else if (changed == 0) std::cout << "every table follows the current rules\n";
  if (failed > 0)
    throw CommandError(fmt::format("tables upgrade: {} of {} tables failed", failed, tables.size()));
}

}  // namespace

std::string UpgradeStatement(Session& session, const TableSchema& schema) {
  const bool mariaDb = session.kind() == 2, postgres = session.kind() == 5;
  if (session.Database().IsSqlite() || (!mariaDb && !postgres)) return "";
  const bool data = schema.Kind() == "data";
  std::vector<std::string> changes;
  for (size_t c = 0; c < schema.columns.size(); ++c) {
    const SchemaColumn& column = schema.columns[c];
    const bool head = !data || c < 4;
    std::string name = session.Quote(column.name);
    std::string type;
    if (head && kUnsigned.count(column.name) && Signed32(column))
      type = column.name == "id" ? "bigint NOT NULL" : "bigint";
    else if (mariaDb && data && !head && Lower(column.typeName) == "float")
      type = "double";
    if (type.empty()) continue;
    changes.push_back(mariaDb ? fmt::format("modify {} {}", name, type)
                              : fmt::format("alter column {} type {}", name, type.substr(0, 6)));
  }
  if (mariaDb && !BinaryCollation(session, schema.name))
    changes.push_back("convert to character set utf8 collate utf8_nopad_bin");
  if (changes.empty()) return "";
  std::string alter = "alter table " + session.Quote(schema.name);
  for (size_t i = 0; i < changes.size(); ++i) alter += (i ? ", " : " ") + changes[i];
  return alter;
}

void AddTablesUpgrade(CLI::App& tables, Context& context) {
  Command upgrade = AddCommand<UpgradeOptions>(
      tables, context,
      {"upgrade",
       "Bring alarm, log and data tables made before to the rules of new tables, keeping every "
       "row: unsigned 32-bit columns that hold 0 to 4294967295 (PostgreSQL and MariaDB), double "
       "float columns and texts compared byte for byte (MariaDB). Prints a line per table; "
       "an alter rewrites the table and holds writers back while it runs",
       "scadastore --config 'plant;scada;secret;2' tables upgrade --dry-run"},
      RunUpgrade);
  upgrade.app->add_option("table", upgrade.options.tables,
                          "tables to upgrade (default: every alarm, log and data table)");
  upgrade.app->add_flag("--dry-run", upgrade.options.dryRun,
                        "show the statement each table needs and change nothing");
}

}  // namespace scadastore::cli
