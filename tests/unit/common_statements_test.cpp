#include <gtest/gtest.h>

#include <string>

#include "core/common_statements.h"
#include "core/time_index.h"

namespace scadastore {
namespace {

// The hash is part of every index created so far: it must never change.
TEST(CommonStatements, TimeIndexNamesStayShortDistinctAndStable) {
  EXPECT_EQ(CreateTimeIndexStatement(1, "t", "time").text,
            "create index [t_time_f10c3da3] on [t] ([time])");
  EXPECT_EQ(TimeIndexName("alarms"), "alarms_time_77658e0b");
  EXPECT_EQ(TimeIndexName("\xe6\x8a\xa5\xe8\xad\xa6"), "time_26442e77");  // no plain letters
  EXPECT_EQ(TimeIndexName("plant-2 [north]").rfind("plant2north_time_", 0), 0u);
  const std::string a = std::string(199, 'n') + "a", b = std::string(199, 'n') + "b";
  EXPECT_EQ(TimeIndexName(a).size(), 54u);
  EXPECT_NE(TimeIndexName(a), TimeIndexName(b));
  // Any name a data table takes still gives a whole statement.
  EXPECT_TRUE(CreateTimeIndexStatement(2, std::string(435, 'n'), "arisetime").complete);
}

TEST(CommonStatements, TextsCutAtTheirBufferAreIncomplete) {
  EXPECT_STREQ(TableOptions(2), "ENGINE=InnoDB DEFAULT CHARSET=utf8 COLLATE=utf8_nopad_bin");
  // 111 characters is the longest name whose index statement stays whole.
  EXPECT_TRUE(CreateIndexStatement(2, std::string(111, 'n')).complete);
  const Statement index = CreateIndexStatement(2, std::string(112, 'n'));
  EXPECT_FALSE(index.complete);
  EXPECT_EQ(index.text.size(), 255u);
  // The same name fits a writer's 2048-byte buffer but is cut in the short one.
  const std::string name(300, 'n');
  EXPECT_TRUE(LargestIdStatement(2, name, 2048).complete);
  const Statement cut = LargestIdStatement(2, name);
  EXPECT_FALSE(cut.complete);
  EXPECT_EQ(cut.text.size(), 255u);
}

}  // namespace
}  // namespace scadastore
