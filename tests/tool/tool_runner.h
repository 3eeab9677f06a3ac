// Runs the scadastore tool against a SQLite file of the test's own, or a test server.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace scadastore::tooltest {

enum class Database { Sqlite, Postgres, Mariadb };

struct ToolRun {
  int status = -1;  // exit status; 128 + the signal when one ended it
  std::string out;
  std::string err;
};

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Further runs go to `database`: false, with nothing changed, when it is
  // a server that no test settings name.
  bool Use(Database database);
  Database database() const { return database_kind_; }

  // The tool on the test's database, then `args`.
  ToolRun Run(const std::vector<std::string>& args);
  // The tool with exactly `args`.
  ToolRun RunBare(const std::vector<std::string>& args);
  // Starts `program` (searched in PATH) with `args`, stdin empty, stdout and
  // stderr to the test's files NAME.out and NAME.err; Wait collects it.
  pid_t Start(const std::string& program, const std::vector<std::string>& args,
              const std::string& name = "run");
  // Starts the tool on the test's database.
  pid_t StartTool(const std::vector<std::string>& args, const std::string& name);
  ToolRun Wait(pid_t pid, const std::string& name = "run");
  // Runs with --format json --epoch, expects success and parses the output.
  nlohmann::json Json(std::vector<std::string> args);
  // Runs expecting success and returns stdout.
  std::string Ok(const std::vector<std::string>& args);

  // Drops the table if it is there and creates it empty.
  void FreshTable(const std::string& kind, const std::string& table,
                  const std::string& columns = "");

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }
  void WriteFile(const std::string& name, const std::string& text) const;

 private:
  std::string dir_;
  std::vector<std::string> database_;
  Database database_kind_ = Database::Sqlite;
};

// A suite whose tests run on SQLite, PostgreSQL and MariaDB, skipped on a
// server that is not configured. A derived SetUp returns early when IsSkipped().
class EachDatabase : public ToolTest, public ::testing::WithParamInterface<Database> {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (!Use(GetParam())) GTEST_SKIP() << "no test server of this kind";
  }
};

std::string DatabaseName(const ::testing::TestParamInfo<Database>& info);

#define INSTANTIATE_ON_EACH_DATABASE(suite)                                              \
  INSTANTIATE_TEST_SUITE_P(Databases, suite,                                             \
                           ::testing::Values(Database::Sqlite, Database::Postgres,       \
                                             Database::Mariadb),                         \
                           DatabaseName)

// Whether `text` contains `part`; the failure shows the whole text.
inline ::testing::AssertionResult Contains(const std::string& text, const std::string& part) {
  if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "'" << part << "' not in:\n" << text;
}

std::string ReadFile(const std::string& path);

}  // namespace scadastore::tooltest
