#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "core/common_statements.h"
#include "core/time_index.h"

namespace scadastore {
namespace {

TEST(CommonStatements, EveryStatementInEachDialect) {
  const std::pair<DbKind, const char*> kinds[] = {{2, "``"}, {1, "[]"}, {5, "\"\""}};
  for (const auto& [kind, quotes] : kinds) {
    SCOPED_TRACE(quotes);
    // Expected texts are written with backticks and quoted here as the dialect quotes names.
    auto quoted = [&](std::string text) {
      for (size_t n = 0; char& c : text)
        if (c == '`') c = quotes[n++ % 2];
      return text;
    };
    EXPECT_EQ(CreateIndexStatement(kind, "t").text, quoted("create index `idx_t` on `t` (`id`)"));
    EXPECT_EQ(CreateTimeIndexStatement(kind, "t", "time").text,
              quoted("create index `t_time_f10c3da3` on `t` (`time`)"));
    EXPECT_EQ(LargestIdStatement(kind, "t").text, quoted("select max(`id`) from `t`"));
    EXPECT_EQ(CountStatement(kind, "t").text, quoted("select count(*) from `t`"));
    EXPECT_EQ(SelectAllStatement(kind, "t").text, quoted("select * from `t` order by `id` asc"));
    EXPECT_EQ(DeleteByIdStatement(kind, "t", 4294967295u).text,
              quoted("delete from `t` where `id`=4294967295"));
    EXPECT_EQ(DropTableStatement(kind, "t").text, quoted("drop table `t`"));
    EXPECT_STREQ(TableOptions(kind), kind == 2 ? "ENGINE=InnoDB DEFAULT CHARSET=utf8" : "");
  }
}

// The hash is part of every index created so far: it must never change.
TEST(CommonStatements, TimeIndexNamesStayShortDistinctAndStable) {
  EXPECT_EQ(TimeIndexName("alarms"), "alarms_time_77658e0b");
  EXPECT_EQ(TimeIndexName("\xe6\x8a\xa5\xe8\xad\xa6"), "time_26442e77");  // no plain letters
  EXPECT_EQ(TimeIndexName("plant-2 [north]"), TimeIndexName("plant-2 [north]"));
  EXPECT_EQ(TimeIndexName("plant-2 [north]").rfind("plant2north_time_", 0), 0u);
  const std::string a = std::string(199, 'n') + "a", b = std::string(199, 'n') + "b";
  EXPECT_EQ(TimeIndexName(a).size(), 54u);
  EXPECT_NE(TimeIndexName(a), TimeIndexName(b));
  // Any name a data table takes still gives a whole statement.
  EXPECT_TRUE(CreateTimeIndexStatement(2, std::string(435, 'n'), "arisetime").complete);
}

TEST(CommonStatements, TextsCutAtTheirBufferAreIncomplete) {
  // 111 characters is the longest name whose index statement stays whole.
  EXPECT_TRUE(CreateIndexStatement(2, std::string(111, 'n')).complete);
  const Statement index = CreateIndexStatement(2, std::string(112, 'n'));
  EXPECT_FALSE(index.complete);
  EXPECT_EQ(index.text.size(), 255u);
  // The same name fits a writer's 2048-byte buffer but is cut in the short one.
  const std::string name(300, 'n');
  const Statement whole = LargestIdStatement(2, name, 2048);
  EXPECT_TRUE(whole.complete);
  EXPECT_EQ(whole.text.size(), 324u);
  const Statement cut = LargestIdStatement(2, name);
  EXPECT_FALSE(cut.complete);
  EXPECT_EQ(cut.text.size(), 255u);
}

}  // namespace
}  // namespace scadastore
