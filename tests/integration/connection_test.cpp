// The connection core against every database: refused ODBC calls, logins,
// schemas and the texts a driver hands out.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "core/connection.h"
#include "core/odbc_api.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

class ConnectionTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(db.Open(), 1) << db.ErrorText();
  }

  // A table of one text column holding `rows` rows.
  std::string MakeTable(int rows) {
    std::string table = DropAtEnd(UniqueTableName("conn"));
    EXPECT_EQ(db.Execute(Sql("create table `%s` (`name` varchar(300))", table).c_str()), 1)
        << db.ErrorText();
    for (int i = 0; i < rows; ++i)
      EXPECT_EQ(db.Execute(Sql("insert into `%s` values ('x')", table).c_str()), 1);
    return table;
  }

  DbConnection db{GetParam().kind};
};

SQLRETURN SQL_API RefuseAllocation(SQLSMALLINT, SQLHANDLE, SQLHANDLE* handle) {
  *handle = SQL_NULL_HANDLE;
  return SQL_ERROR;
}
SQLRETURN SQL_API RefuseAttribute(SQLHSTMT, SQLINTEGER, SQLPOINTER, SQLINTEGER) {
  return SQL_ERROR;
}

TEST_P(ConnectionTest, RefusedOdbcCallsFailTheirOperation) {
  std::string table = MakeTable(1);
  std::string select = Sql("select `name` from `%s`", table);
  {
    OdbcOverride fault;
    fault->SetStmtAttr = RefuseAttribute;
    EXPECT_EQ(db.OpenQuery(select.c_str()), 0) << "without its scrollable cursor";
    fault->AllocHandle = RefuseAllocation;
    EXPECT_EQ(db.OpenQuery(select.c_str()), 0);
    EXPECT_EQ(db.Execute(select.c_str()), 0);
    EXPECT_STREQ(db.ErrorText(), "ret: -1, msg: ");
    EXPECT_EQ(dbIsTableExist(Token(), table.c_str()), 0);
  }
  EXPECT_EQ(db.OpenQuery(select.c_str()), 1) << "the table is restored";
  EXPECT_EQ(db.CountRows(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Databases, ConnectionTest, ::testing::ValuesIn(Databases({1, 4, 6})),
                         DatabaseName);

// Server-only behaviour: passwords, schemas, UTF-8 from the backtick dialect.
class ServerConnectionTest : public ConnectionTest {};

// Users and passwords holding the connection text's own characters ('{', '}',
// '=') and those psqlODBC decodes ('+', '%41') log in exactly as given; a cut
// or altered password is refused with the driver's text.
TEST_P(ServerConnectionTest, LoginsAreReadExactlyAndSchemasSearched) {
  const std::string config = GetParam().Config();
  const std::string dsn = config.substr(0, config.find(';'));
  const std::string password = "{a}b}=c+%41";
  const std::string id = std::to_string(getpid());
  const std::string users[] = {"{s}=" + id, "s}{=" + id};
  for (const std::string& user : users) {
    const std::string mariadbUser = "'" + user + "'@'%'";
    const std::vector<std::string> creates =
        kind() == 2 ? std::vector<std::string>{"create user " + mariadbUser + " identified by '" +
                                                   password + "'",
                                               "grant select on *.* to " + mariadbUser}
                    : std::vector<std::string>{"create role \"" + user + "\" login password '" +
                                               password + "'"};
    for (const std::string& create : creates)
      ASSERT_EQ(db.Execute(create.c_str()), 1) << db.ErrorText();
    for (const std::string& tried : {password, std::string("{a}b}"), std::string("{a}b}=c+A")}) {
      DbConnection login;
      EXPECT_EQ(login.Open(dsn.c_str(), user.c_str(), tried.c_str()), tried == password ? 1 : 0)
          << user << " with " << tried << ": " << login.ErrorText();
    }
    const std::string drop = kind() == 2 ? "drop user " + mariadbUser : "drop role \"" + user + "\"";
    EXPECT_EQ(db.Execute(drop.c_str()), 1) << db.ErrorText();
  }
  // A PostgreSQL table in another schema is found.
  if (kind() != 5) return;
  std::string schema = UniqueTableName("schema");
  ASSERT_EQ(db.Execute(("create schema " + schema).c_str()), 1) << db.ErrorText();
  std::string table = UniqueTableName("inner");
  ASSERT_EQ(db.Execute(("create table " + schema + "." + table + " (id integer)").c_str()), 1);
  EXPECT_EQ(dbIsTableExist(Token(), table.c_str()), 1);
  EXPECT_EQ(db.Execute(("drop schema " + schema + " cascade").c_str()), 1);
}

TEST_P(ServerConnectionTest, Utf8TextArrivesInTheProcessCharacterSet) {
  std::string table = MakeTable(0);
  const std::string text = "caf\xC3\xA9 \xE4\xB8\xAD\xE6\x96\x87";  // café 中文
  ASSERT_EQ(db.Execute((Sql("insert into `%s` values ('", table) + text + "')").c_str()), 1)
      << db.ErrorText();
  ASSERT_EQ(db.OpenQuery(Sql("select `name` from `%s`", table).c_str()), 1);
  ASSERT_EQ(db.MoveToFirstRow(), 1);
  char value[64] = {};
  EXPECT_EQ(db.GetString(1, value, sizeof value), 1);
  EXPECT_EQ(std::string(value), text);
  char cut[8] = {};
  ASSERT_EQ(db.MoveFirst(), 1);
  EXPECT_EQ(db.GetString(1, cut, sizeof cut), 1);
  EXPECT_EQ(std::string(cut), kind() == 2 ? "caf\xC3\xA9 " : std::string(text, 0, 7));
}

INSTANTIATE_TEST_SUITE_P(Databases, ServerConnectionTest, ::testing::ValuesIn(Databases({})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
