#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore {
namespace {

ConnectionSettings Parsed(const char* text, bool expectAccepted = true) {
  ConnectionSettings settings;
  std::strcpy(settings.dsn, "before");
  settings.kind = 3;
  EXPECT_EQ(ParseSettings(text, settings), expectAccepted) << (text ? text : "null");
  return settings;
}

TEST(ParseSettings, FourFieldsCutTo63WithAnAtoiKindOrNothing) {
  ConnectionSettings s = Parsed("plant;operator;secret;2");
  EXPECT_STREQ(s.dsn, "plant");
  EXPECT_STREQ(s.user, "operator");
  EXPECT_STREQ(s.password, "secret");
  EXPECT_EQ(s.kind, 2);
  EXPECT_STREQ(Parsed("plant;;;3").password, "");
  for (auto [text, kind] : {std::pair{"d;u;p; 4xyz", 4}, {"d;u;p;4;5", 4}, {"d;u;p;+6", 6}})
    EXPECT_EQ(Parsed(text).kind, kind) << text;
  const std::string hundred(100, 'a');
  s = Parsed((hundred + ";" + hundred + ";" + hundred + ";1").c_str());
  for (const char* field : {s.dsn, s.user, s.password}) EXPECT_EQ(field, std::string(63, 'a'));
  // A rejected text leaves the settings unchanged.
  for (const char* text : {";u;p;1", "d;u;p;", "d;u;p;7", "d;u;p;0", "d;u;p;x", "d;u;p",
                           "d;u", "dsn", ""}) {
    const ConnectionSettings rejected = Parsed(text, false);
    EXPECT_STREQ(rejected.dsn, "before") << text;
    EXPECT_EQ(rejected.kind, 3) << text;
  }
  Parsed(nullptr, false);
}

TEST(ParseSettings, OptionsAfterTheKind) {
  ConnectionSettings s = Parsed("d;u;p;5");
  EXPECT_FALSE(s.pool);
  EXPECT_EQ(s.loginTimeoutSeconds, 7);
  EXPECT_EQ(s.statementTimeoutSeconds, 300);
  EXPECT_EQ(s.spoolDirectory, "");
  EXPECT_EQ(s.spoolMegabytes, 1024u);
  s = Parsed("d;u;p;5;pool;login=3;timeout=0;colour=red;poolish;spool=/var/s;spoolmax=5");
  EXPECT_EQ(s.spoolDirectory, "/var/s");
  EXPECT_EQ(s.spoolMegabytes, 5u);
  EXPECT_EQ(s.kind, 5);
  EXPECT_TRUE(s.pool);
  EXPECT_EQ(s.loginTimeoutSeconds, 3);
  EXPECT_EQ(s.statementTimeoutSeconds, 0);
  EXPECT_FALSE(Parsed("d;u;p;5;poolish").pool);
  for (const char* text : {"d;u;p;5;login=0", "d;u;p;5;timeout=", "d;u;p;5;timeout=5s",
                           "d;u;p;5;login=-1", "d;u;p;5;timeout=86401", "d;u;p;5;spool=",
                           "d;u;p;5;spoolmax=0", "d;u;p;5;spoolmax=-1", "d;u;p;5;spoolmax=1M"})
    EXPECT_STREQ(Parsed(text, false).dsn, "before") << text;
}

TEST(Dialects, QuotingOfNamesAndTextValues) {
  const char* expected[] = {"drop table [t]", "drop table `t`", "drop table [t]",
                            "drop table \"t\"", "drop table \"t\"", "drop table [t]"};
  for (int kind = 1; kind <= 6; ++kind)
    EXPECT_EQ(FormatStatement(DialectOf(kind), 256, "drop table `%s`", "t").text, expected[kind - 1])
        << "kind " << kind;
  // Names are never rewritten.
  EXPECT_EQ(FormatStatement(SqlDialect::Bracket, 256, "select `a` from `%s`", "x]`y").text,
            "select [a] from [x]`y]");
  EXPECT_EQ(FormatStatement(SqlDialect::DoubleQuote, 16, "select `%s`", "abcdefghijklmnop").text,
            "select \"abcdefg");
  // Text values are shown quoted and sent bound.
  Statement statement{"where a = "};
  statement.AppendText("it's a\\b");
  statement += {" or b = "};
  statement.AppendText("");
  EXPECT_EQ(statement.text, "where a = 'it''s a\\b' or b = ''");
  EXPECT_EQ(statement.sql, "where a = ? or b = ?");
  EXPECT_EQ(statement.texts, (std::vector<std::string>{"it's a\\b", ""}));
  EXPECT_TRUE(statement.complete);
  // Cut like a buffer of that size: the shown text stops, the statement is incomplete.
  Statement cut{"select "};
  cut.AppendText("abcdef").Bound(10);
  EXPECT_EQ(cut.text, "select 'a");
  EXPECT_FALSE(cut.complete);
  char field[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(FieldText(field, sizeof field), "abcd");
}

}  // namespace
}  // namespace scadastore
