#include "databases.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "core/sql_text.h"
#include "core/time_index.h"

namespace scadastore::testing {

std::string Database::Config() const {
  const char* value = std::getenv(envVar.c_str());
  if (value == nullptr || *value == '\0') return {};
  return std::string(value) + ";" + std::to_string(kind);
}

std::vector<Database> Databases(std::vector<int> sqliteKinds) {
  std::vector<Database> all;
  for (int kind : sqliteKinds)
    all.push_back({"Sqlite" + std::to_string(kind), "SCADASTORE_TEST_SQLITE", kind});
  all.push_back({"Postgres5", "SCADASTORE_TEST_POSTGRES", 5});
  all.push_back({"Mariadb2", "SCADASTORE_TEST_MARIADB", 2});
  return all;
}

std::string DatabaseName(const ::testing::TestParamInfo<Database>& info) {
  return info.param.name;
}

std::string UniqueTableName(const std::string& prefix) {
  static std::atomic<int> counter{0};
  return prefix + "_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

std::string DropTimeIndexSql(int kind, const std::string& table) {
  const std::string index = TimeIndexName(table);
  return kind == 2 ? FormatStatement(DialectOf(kind), 1024, "drop index `%s` on `%s`",
                                     index.c_str(), table.c_str()).text
                   : FormatStatement(DialectOf(kind), 1024, "drop index `%s`", index.c_str()).text;
}

::testing::AssertionResult Refused(uint32_t result, uint32_t failure, const std::string& start) {
  const std::string last = dbGetLastError();
  if (result == failure && last.rfind(start, 0) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "result " << result << ", error text \"" << last << '"';
}

void DatabaseTest::SetUp() {
  std::string config = GetParam().Config();
  if (config.empty()) {
    const char* ci = std::getenv("CI");
    if (ci != nullptr && std::string(ci) == "true")
      FAIL() << GetParam().envVar << " is not set: its server did not start";
    GTEST_SKIP() << GetParam().envVar << " is not set";
  }
  ASSERT_EQ(dbInitialize(config.c_str()), 0u) << "cannot connect with " << config;
}

void DatabaseTest::TearDown() {
  for (const std::string& table : tables_) dbRemoveTable(Token(), table.c_str(), nullptr, 0);
}

std::string DatabaseTest::DropAtEnd(const std::string& table) {
  tables_.push_back(table);
  return table;
}

}  // namespace scadastore::testing
