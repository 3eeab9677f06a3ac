#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "core/common_statements.h"

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
    EXPECT_EQ(LargestIdStatement(kind, "t").text, quoted("select max(`id`) from `t`"));
    EXPECT_EQ(CountStatement(kind, "t").text, quoted("select count(*) from `t`"));
    EXPECT_EQ(SelectAllStatement(kind, "t").text, quoted("select * from `t` order by `id` asc"));
    EXPECT_EQ(DeleteByIdStatement(kind, "t", 4294967295u).text,
              quoted("delete from `t` where `id`=4294967295"));
    EXPECT_EQ(DropTableStatement(kind, "t").text, quoted("drop table `t`"));
    EXPECT_STREQ(TableOptions(kind), kind == 2 ? "ENGINE=InnoDB DEFAULT CHARSET=utf8" : "");
  }
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
