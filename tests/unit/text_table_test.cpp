#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "record/text_table.h"

namespace scadastore::record {
namespace {

using Names = std::vector<std::string>;

TEST(TimeColumnList, CutsAtSemicolonsAndDropsEmptyAndLongPieces) {
  EXPECT_EQ(CutTimeColumnList(nullptr), Names{});
  EXPECT_EQ(CutTimeColumnList(""), Names{});
  EXPECT_EQ(CutTimeColumnList("a"), Names{"a"});
  EXPECT_EQ(CutTimeColumnList("a;;b"), (Names{"a", "b"}));
  EXPECT_EQ(CutTimeColumnList("a;b;"), (Names{"a", "b"}));
  EXPECT_EQ(CutTimeColumnList(";a"), Names{"a"});

  std::string longest(63, 'x'), tooLong(64, 'y');
  EXPECT_EQ(CutTimeColumnList((longest + ";" + tooLong + ";c").c_str()), (Names{longest, "c"}));

  std::string twenty;
  for (int i = 1; i <= 20; ++i) twenty += "c" + std::to_string(i) + (i % 5 == 0 ? ";;" : ";");
  Names kept = CutTimeColumnList(twenty.c_str());
  ASSERT_EQ(kept.size(), 16u);
  EXPECT_EQ(kept.front(), "c1");
  EXPECT_EQ(kept.back(), "c16");
}

TEST(TimeColumnList, ClassifiesColumnsByExactName) {
  using K = CellKind;
  EXPECT_EQ(ClassifyColumns({"id", "time", "ms", "modify", "a", "ID", "Time"}, {}),
            (std::vector<K>{K::Skipped, K::DateTime, K::Skipped, K::Skipped, K::Text, K::Text,
                            K::Text}));
  // Each listed name takes the first column of its name that no earlier
  // listed name has taken; case matters; unmatched names are ignored.
  EXPECT_EQ(ClassifyColumns({"t", "u", "t", "T"}, {"t", "x"}),
            (std::vector<K>{K::DateTime, K::Text, K::Text, K::Text}));
  EXPECT_EQ(ClassifyColumns({"t", "u", "t"}, {"t", "u", "t"}),
            (std::vector<K>{K::DateTime, K::DateTime, K::DateTime}));
  EXPECT_EQ(ClassifyColumns({"ms", "a"}, {"ms"}), (std::vector<K>{K::Skipped, K::Text}));
}

TEST(DateTimeCell, ShowsLocalTimeInsideItsWindowOnly) {
  const char* saved = std::getenv("TZ");
  std::string savedTz = saved ? saved : "";
  setenv("TZ", "Asia/Shanghai", 1);
  tzset();
  char cell[256] = "untouched";
  EXPECT_FALSE(FormatDateTimeCell(1262275200, cell, sizeof cell));
  EXPECT_FALSE(FormatDateTimeCell(0, cell, sizeof cell));
  EXPECT_FALSE(FormatDateTimeCell(2051193600, cell, sizeof cell));
  EXPECT_STREQ(cell, "untouched");
  EXPECT_TRUE(FormatDateTimeCell(1262275201, cell, sizeof cell));
  EXPECT_STREQ(cell, "2010-01-01 00:00:01");
  EXPECT_TRUE(FormatDateTimeCell(2051193599, cell, sizeof cell));
  EXPECT_STREQ(cell, "2034-12-31 23:59:59");
  EXPECT_TRUE(FormatDateTimeCell(1714521600, cell, sizeof cell));
  EXPECT_STREQ(cell, "2024-05-01 08:00:00");
  if (saved) setenv("TZ", savedTz.c_str(), 1); else unsetenv("TZ");
  tzset();
}

TEST(TextTableBuilder, DoublesTheTextBlockAndKeepsEveryByte) {
  TextTableBuilder builder;
  ASSERT_TRUE(builder.AllocateOffsets(1, 4));
  ASSERT_TRUE(builder.AllocateText(1));
  EXPECT_EQ(builder.text_capacity(), 1024u);

  // Four 255-character cells and a header of 4 x 2 bytes need 1032 bytes.
  std::string expected;
  std::vector<std::string> pieces = {"h1", "h2", "h3", "h4"};
  for (char c : std::string("abcd")) pieces.push_back(std::string(255, c));
  for (const std::string& piece : pieces) {
    ASSERT_EQ(builder.Append(piece), TextTableBuilder::AppendResult::Appended);
    expected += piece + '\0';
  }
  EXPECT_EQ(builder.text_capacity(), 2048u);
  ASSERT_EQ(builder.text_length(), expected.size());
  EXPECT_EQ(std::memcmp(builder.text(), expected.data(), expected.size()), 0);
  for (uint64_t i = expected.size(); i < builder.text_capacity(); ++i)
    ASSERT_EQ(builder.text()[i], '\0') << i;
  const uint32_t offsets[] = {0, 3, 6, 9, 12, 268, 524, 780};
  EXPECT_EQ(std::memcmp(builder.offsets(), offsets, sizeof offsets), 0);

  uint32_t* handedOffsets = builder.ReleaseOffsets();
  char* handedText = builder.ReleaseText();
  EXPECT_STREQ(handedText + handedOffsets[7], pieces[7].c_str());
  std::free(handedOffsets);
  std::free(handedText);
}

TEST(TextTableBuilder, RefusesTextBeyondItsLimit) {
  TextTableBuilder builder(1500);
  ASSERT_TRUE(builder.AllocateOffsets(1, 8));
  ASSERT_TRUE(builder.AllocateText(1));
  std::string cell(255, 'x');
  for (int i = 0; i < 5; ++i) ASSERT_EQ(builder.Append(cell), TextTableBuilder::AppendResult::Appended);
  EXPECT_EQ(builder.text_capacity(), 1500u);
  EXPECT_EQ(builder.Append(cell), TextTableBuilder::AppendResult::TooLarge);
  EXPECT_EQ(builder.text_length(), 5 * 256u);
}

}  // namespace
}  // namespace scadastore::record
