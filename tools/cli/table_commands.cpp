// ensure, drop, exists: table management common to every family.
#include <fmt/format.h>

#include "tools/cli/commands.h"

namespace scadastore::cli {

std::map<std::string, EnsureFunction>& EnsureKinds() {
  static std::map<std::string, EnsureFunction> kinds;
  return kinds;
}

CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& example) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->footer("\nExample:\n  " + example);
  return command;
}

void RequireTable(Context& context, const std::string& table, const std::string& detail) {
  if (!dbIsTableExist(context.session.token(), table.c_str()))
    throw CommandError(fmt::format("table {} does not exist{}{}", table, detail.empty() ? "" : ": ",
                                   detail));
}

void AddTableCommands(CLI::App& app, Context& context) {
  struct Arguments {
    std::string kind, table, columns;
  };
  auto arguments = std::make_shared<Arguments>();

  CLI::App* ensure = AddCommand(
      app, "ensure", "Create an alarm, log or data table unless it exists",
      "scadastore --sqlite plant.db ensure data samples --columns temp:float,pump:int,mode:text");
  ensure->add_option("kind", arguments->kind, "alarm, log or data")->required();
  ensure->add_option("table", arguments->table, "table name")->required();
  ensure->add_option("--columns", arguments->columns,
                     "value columns of a data table: name:float|int|text,... (int values "
                     "are stored as 0 or 1)");
  ensure->callback([&context, arguments] {
    auto kind = EnsureKinds().find(arguments->kind);
    if (kind == EnsureKinds().end()) {
      std::string known;
      for (const auto& [name, function] : EnsureKinds()) known += (known.empty() ? "" : ", ") + name;
      throw CommandError(fmt::format("ensure: unknown kind '{}' (known: {})", arguments->kind, known));
    }
    context.session.Connect();
    kind->second(context, arguments->table, arguments->columns);
    std::cout << fmt::format("{} table {} is there\n", arguments->kind, arguments->table);
  });

  CLI::App* drop = AddCommand(app, "drop", "Drop a table", "scadastore --sqlite plant.db drop samples");
  drop->add_option("table", arguments->table, "table name")->required();
  drop->callback([&context, arguments] {
    context.session.Connect();
    char error[1024] = "";
    if (dbRemoveTable(context.session.token(), arguments->table.c_str(), error, sizeof error) != 0)
      throw CommandError(fmt::format("drop {}: {}", arguments->table,
                                     *error ? error : "cannot connect"));
    std::cout << fmt::format("dropped {}\n", arguments->table);
  });

  CLI::App* exists = AddCommand(app, "exists",
                                "Print yes and exit 0 when a table exists, else no and exit 1",
                                "scadastore --sqlite plant.db exists samples");
  exists->add_option("table", arguments->table, "table name")->required();
  exists->callback([&context, arguments] {
    context.session.Connect();
    bool found = dbIsTableExist(context.session.token(), arguments->table.c_str()) != 0;
    std::cout << (found ? "yes\n" : "no\n");
    context.exitCode = found ? 0 : 1;
  });
}

}  // namespace scadastore::cli
